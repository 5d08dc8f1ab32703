// The blackboard: named values with a persist flag and a timestamp, named queues, and watchers that are told on the
// user-interface thread. Names are folded (ASCII capitals); values are bytes, text is UTF-8. Any thread; one recursive lock, held
// for one call or between open and close. Reads pass beside the lock, and beside each other, unless a change or open is on its way.
#pragma once

#include "base/GUtil.h"
#include "platform/GNotify.h"
#include "platform/GThread.h"
#include "runtime/GHTTPHeaders.h"
#include "runtime/GNameIndex.h"
#include "runtime/GReaderGate.h"
#include "runtime/GThreadSafeObject.h"

#include <atomic>
#include <deque>
#include <map>
#include <mutex>

class GInstance : public GThreadSafeObject
{
public:
    explicit GInstance( const GWString& filename ); // Precondition "filename.size( )". Loads the file if it exists.
    ~GInstance( ) override;                         // Saves.

    // Replaces the settings file whole, or warns and leaves the old one in place. Returns when the text is on the disk.
    void save( );
    void logDump( );

    // Assigns and notifies only if the text differs; if equal, persist and timestamp stay too.
    void set( GWStringView name, const GString& value, bool persist = false );
    void set( GWStringView name, GWStringView value, bool persist = false );
    void set( GWStringView name, const char16_t* value, bool persist = false )
    {
        set( name, GWStringView( value ), persist );
    }
    void set( GWStringView name, const GWString& value, bool persist = false )
    {
        set( name, GWStringView( value ), persist );
    }
    void set( GWStringView name, const GStringList& list, bool persist = false );
    void set( GWStringView name, int64_t value, bool persist = false );
    void set( GWStringView name, int value, bool persist = false )
    {
        set( name, static_cast<int64_t>( value ), persist );
    }
    // Assigns and notifies always.
    void setRaw( GWStringView name, const char* bytes, int length, bool persist = false );

    GWString get( GWStringView name );
    void get( GWStringView name, GWString& out );
    void get( GWStringView name, GString& out );
    bool get( GWStringView name, GStringList& list );
    bool get( GWStringView name, GStringVector& vector );
    GString getRaw( GWStringView name );
    uint64_t getTimestamp( GWStringView name );
    bool isSet( GWStringView name );
    bool contains( GWStringView name, GWStringView item );
    bool test( GWStringView name );
    int64_t calc( GWStringView name );

    void insert( GWStringView name, GWStringView item ); // Always leaves the value non-persistent.
    void remove( GWStringView name, GWStringView item );
    GString& open( GWStringView name ); // Takes the lock and keeps it until close.
    void close( GWStringView name, bool notify );
    void clear( GWStringView name ); // One name, or with a trailing "*" every name that begins so.

    void enqueue( GWStringView name, const GString& item );
    void enqueue( GWStringView name, const GHTTPHeaders& message );
    bool dequeue( GWStringView name, GString& out );
    bool index( GWStringView name, int i, GString& out );
    int length( GWStringView name );
    // Sets `event`, which is borrowed, whenever an item enters that queue, so that whoever serves it need not ask again and again. One
    // for each queue; null ends it.
    void setWaker( GWStringView name, GEvent event );
    size_t getNameCount( ); // Values and queues.

    void watch( GWStringView name, GNotifyHandle notify, int arg );
    void unwatch( GWStringView name, GNotifyHandle notify, int arg );

    // Another number after every change of any value, and never the same for two blackboards: what was read under one number may be
    // kept for as long as it stands. Takes no lock.
    uint64_t getGeneration( ) const { return _generation.load( std::memory_order_acquire ); }

    // True when the shipped settings turn the named remedy on, e.g. u"Robust_Signalling".
    bool isRobust( GWStringView name ) { return test( name ); }

private:
    struct Value
    {
        GString value;
        bool persist = false;
        uint64_t timestamp = 0;
    };
    struct Watcher
    {
        GNotifyHandle notify;
        int arg;
    };
    using ValueMap = std::map<GWString, Value, std::less<>>;
    using Entry = ValueMap::value_type;
    class Reading;
    class Writing;

    void _lockAll( );
    void _unlockAll( );
    void _load( );
    bool _write( const GString& out );
    void _notify( GWStringView lname );
    void _changed( );
    const Value* _find( GWStringView name ) const;
    Value& _obtain( const GFoldedName& lname ); // Created when missing.
    void _assign( const GFoldedName& lname, std::string_view bytes, bool persist );
    void _erase( ValueMap::iterator first, ValueMap::iterator last );
    size_t _lengthOf( GWStringView lname ) const;

    std::atomic<uint64_t> _generation = 0;
    GWString _filename;
    GReaderGate _gate; // Shut while _writers is above 0.
    int _writers = 0;  // How often the holder of the lock has asked for the tables.
    ValueMap _nameValueMap;
    GNameIndex<Entry> _nameIndex; // Of _nameValueMap.
    std::map<GWString, std::deque<GString>, std::less<>> _queueMap;
    std::map<GWString, std::list<Watcher>, std::less<>> _watchMap;
    std::map<GWString, GEvent, std::less<>> _wakerMap;
    uint64_t _saveCount = 0; // Texts built.
    std::mutex _saveMutex;   // Taken last, around the file alone.
    uint64_t _savedCount = 0;
};
