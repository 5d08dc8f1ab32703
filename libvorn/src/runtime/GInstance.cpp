#include "runtime/GInstance.h"

#include "base/GDebug.h"
#include "base/GLineGrammar.h"
#include "platform/GFileAside.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cstdio>

namespace
{
constexpr size_t MAX_QUEUE_LENGTH = 65536;
constexpr size_t MAX_DUMPED_VALUE = 1024;
// One count for all blackboards.
std::atomic<uint64_t> lastGeneration_ = 0;
std::atomic<uint64_t> settingsGeneration_ = 0;

} // namespace

uint64_t GInstanceGetSettingsGeneration( )
{
    return settingsGeneration_.load( std::memory_order_acquire );
}

// Reads beside other readers; waits for whoever makes a change or holds open.
class GInstance::Reading
{
public:
    explicit Reading( GInstance& instance ) : _instance( instance ), _slot( instance._gate.enter( ) )
    {
        if( !_slot ) _instance.lock( );
    }
    ~Reading( )
    {
        if( _slot )
            GReaderGate::leave( *_slot );
        else
            _instance.unlock( );
    }
    Reading( const Reading& ) = delete;
    Reading& operator=( const Reading& ) = delete;

private:
    GInstance& _instance;
    GReaderGate::Slot* const _slot; // Null for a reader who had to take the lock.
};

// Alone with the tables.
class GInstance::Writing
{
public:
    explicit Writing( GInstance& instance ) : _instance( instance ) { _instance._lockAll( ); }
    ~Writing( ) { _instance._unlockAll( ); }
    Writing( const Writing& ) = delete;
    Writing& operator=( const Writing& ) = delete;

private:
    GInstance& _instance;
};

void GInstance::_lockAll( )
{
    lock( );
    if( !_writers++ ) _gate.shut( );
}
void GInstance::_unlockAll( )
{
    if( !--_writers ) _gate.open( );
    unlock( );
}

GInstance::GInstance( const GWString& filename ) : _filename( filename )
{
    GCALL( GInstance );
    GPRECONDITION( filename.size( ) );
    const Writing writing( *this );
    _load( );
    _changed( );
}

GInstance::~GInstance( )
{
    GCALL( GInstance );
    save( );
}

void GInstance::_load( )
{
    using namespace GLineGrammar;
    GString text;
    if( !GFileLoad( _filename, text ) ) return;
    Matches names;
    Matches values;
    const auto eol = ( spirit::ch_p( '\r' ) >> !spirit::ch_p( '\n' ) ) | spirit::ch_p( '\n' );
    spirit::parse( text.data( ), text.data( ) + text.size( ), *( line( names, values ) >> eol ) );
    const size_t pairs = countPairs( names, values );
    const uint64_t now = GTimeGetTime( );
    for( size_t i = 0; i < pairs; ++i )
        _obtain( GFoldedName( GUTF8ToWide( GUnescape( names[i] ) ) ) ) = { GUnescape( values[i] ), true, now };
}

void GInstance::save( )
{
    GCALL( GInstance );
    GString out;
    lock( );
    const uint64_t number = ++_saveCount;
    for( const auto& [name, value] : _nameValueMap )
        if( value.persist && !name.empty( ) )
            out += GEscape( GWideToUTF8( name ), ": " ) + ": " + GEscape( value.value, "" ) + "\n";
    unlock( );
    out += "\n";
    // A disk takes its time: only open may hold the lock for long. Texts of two threads reach the file in the order they were built.
    const std::scoped_lock saving( _saveMutex );
    if( number > _savedCount && _write( out ) ) _savedCount = number;
}

bool GInstance::_write( const GString& out )
{
    const GFileAside file = GFileAsideOpen( GWideToUTF8( _filename ) );
    FILE* const fp = file ? GFileAsideGetStream( file ) : nullptr;
    if( !GVERIFY( fp ) ) return false;
    const bool written = GVERIFY( fwrite( out.c_str( ), 1, out.size( ), fp ) == out.size( ) );
    const bool synced = written && GVERIFY( GFileAsideSync( file ) );
    const bool closed = GVERIFY( !fclose( fp ) );
    const bool whole = synced && closed;
    return GVERIFY( GFileAsideClose( file, whole ) || !whole ) && whole;
}

void GInstance::logDump( )
{
    GCALL( GInstance );
    const GObjectLock scope( *this );
    for( const auto& [name, value] : _nameValueMap )
    {
        if( value.value.empty( ) ) continue;
        // Values may hold pictures and line ends: what reaches the log is one line of bounded length.
        const GWString text =
            GUTF8ToWide( GEscape( std::string_view( value.value ).substr( 0, MAX_DUMPED_VALUE ), "" ) );
        GLOGPLAIN( u"SETTINGS: ", name, u": ", GLogMask( name, text ) );
    }
}

void GInstance::_changed( )
{
    _generation.store( ++lastGeneration_, std::memory_order_release );
}

const GInstance::Value* GInstance::_find( GWStringView name ) const
{
    const Entry* const entry = _nameIndex.find( GFoldedName( name ) );
    return entry ? &entry->second : nullptr;
}
GInstance::Value& GInstance::_obtain( const GFoldedName& lname )
{
    if( Entry* const entry = _nameIndex.find( lname ) ) return entry->second;
    Entry& entry = *_nameValueMap.try_emplace( lname.text( ) ).first;
    _nameIndex.insert( lname.hash( ), &entry );
    return entry.second;
}
void GInstance::_erase( ValueMap::iterator first, ValueMap::iterator last )
{
    for( auto entry = first; entry != last; ++entry )
    {
        if( entry->second.persist ) settingsGeneration_.fetch_add( 1, std::memory_order_release );
        _nameIndex.erase( GFoldedName( entry->first ).hash( ), &*entry );
    }
    _nameValueMap.erase( first, last );
}
void GInstance::_assign( const GFoldedName& lname, std::string_view bytes, bool persist )
{
    Value& value = _obtain( lname );
    if( persist || value.persist ) settingsGeneration_.fetch_add( 1, std::memory_order_release );
    value.value = bytes;
    value.persist = persist;
    value.timestamp = GTimeGetTime( );
    _changed( );
    _notify( lname.view( ) );
}

void GInstance::_notify( GWStringView lname )
{
    const auto found = _watchMap.find( lname );
    if( found == _watchMap.end( ) ) return;
    for( const Watcher& watcher : found->second ) GNotify( watcher.notify, watcher.arg );
}

// ---- Values.
void GInstance::set( GWStringView name, const GString& value, bool persist )
{
    GCALL( GInstance );
    const GFoldedName lname( name );
    const auto isEqual = [&]( )
    {
        const Entry* const old = _nameIndex.find( lname );
        return old ? old->second.value == value : value.empty( );
    };
    {
        // Most calls change nothing and disturb nobody.
        const Reading reading( *this );
        if( isEqual( ) ) return;
    }
    const Writing writing( *this );
    if( !isEqual( ) ) _assign( lname, value, persist );
}
void GInstance::set( GWStringView name, GWStringView value, bool persist )
{
    set( name, GWideToUTF8( value ), persist );
}
void GInstance::set( GWStringView name, const GStringList& list, bool persist )
{
    set( name, GWStringView( GJoinList( list ) ), persist );
}
void GInstance::set( GWStringView name, int64_t value, bool persist )
{
    set( name, std::to_string( value ), persist );
}
void GInstance::setRaw( GWStringView name, const char* bytes, int length, bool persist )
{
    GCALL( GInstance );
    const GFoldedName lname( name );
    const Writing writing( *this );
    _assign( lname, bytes ? std::string_view( bytes, static_cast<size_t>( std::max( length, 0 ) ) ) : "", persist );
}

GWString GInstance::get( GWStringView name )
{
    GWString out;
    get( name, out );
    return out;
}
void GInstance::get( GWStringView name, GWString& out )
{
    GCALL( GInstance );
    GVERIFY( !name.empty( ) );
    const Reading reading( *this );
    if( const Value* const value = _find( name ) )
        GUTF8ToWide( value->value, out );
    else
        out.clear( );
}
void GInstance::get( GWStringView name, GString& out )
{
    GCALL( GInstance );
    GVERIFY( !name.empty( ) );
    const Reading reading( *this );
    if( const Value* const value = _find( name ) )
        out = value->value;
    else
        out.clear( );
}
bool GInstance::get( GWStringView name, GStringList& list )
{
    list = GSplitList( get( name ) );
    return !list.empty( );
}
bool GInstance::get( GWStringView name, GStringVector& vector )
{
    const GStringList list = GSplitList( get( name ) );
    vector.assign( list.begin( ), list.end( ) );
    return !vector.empty( );
}
GString GInstance::getRaw( GWStringView name )
{
    GCALL( GInstance );
    const Reading reading( *this );
    const Value* const value = _find( name );
    return value ? value->value : GString( );
}
uint64_t GInstance::getTimestamp( GWStringView name )
{
    GCALL( GInstance );
    const Reading reading( *this );
    const Value* const value = _find( name );
    return value ? value->timestamp : 0;
}
bool GInstance::isSet( GWStringView name )
{
    GCALL( GInstance );
    const Reading reading( *this );
    const Value* const value = _find( name );
    return value && !value->value.empty( );
}
bool GInstance::contains( GWStringView name, GWStringView item )
{
    GStringList list;
    return get( name, list ) && GListContains( list, item );
}
bool GInstance::test( GWStringView name )
{
    GCALL( GInstance );
    const Reading reading( *this );
    const Value* const value = _find( name );
    return value && GTest( std::string_view( value->value ) );
}
int64_t GInstance::calc( GWStringView name )
{
    GCALL( GInstance );
    const Reading reading( *this );
    const Value* const value = _find( name );
    return value ? GCalc( std::string_view( value->value ) ) : 0;
}

void GInstance::insert( GWStringView name, GWStringView item )
{
    GCALL( GInstance );
    if( !GVERIFY( !name.empty( ) ) ) return;
    const Writing writing( *this );
    GStringList list;
    get( name, list );
    if( !GListContains( list, item ) ) list.emplace_back( item );
    set( name, list, false );
}
void GInstance::remove( GWStringView name, GWStringView item )
{
    GCALL( GInstance );
    if( !GVERIFY( !name.empty( ) ) ) return;
    const Writing writing( *this );
    GStringList list;
    get( name, list );
    list.remove( GWString( item ) );
    set( name, list, false );
}

GString& GInstance::open( GWStringView name )
{
    GCALL( GInstance );
    _lockAll( );
    _changed( );
    return _obtain( GFoldedName( name ) ).value;
}
void GInstance::close( GWStringView name, bool notify )
{
    GCALL( GInstance );
    const GFoldedName lname( name );
    Entry* const entry = _nameIndex.find( lname );
    if( GVERIFY_TEXT( entry, "GMAPCONTAINS( _nameValueMap, lname )" ) ) entry->second.timestamp = GTimeGetTime( );
    _changed( );
    if( notify ) _notify( lname.view( ) );
    _unlockAll( );
}

void GInstance::clear( GWStringView name )
{
    GCALL( GInstance );
    const GFoldedName folded( name );
    const GWStringView lname = folded.view( );
    const Writing writing( *this );
    if( lname.ends_with( u'*' ) )
    {
        const GWStringView base = lname.substr( 0, lname.size( ) - 1 );
        GASSERT( !base.empty( ) );
        const auto first = _nameValueMap.lower_bound( base );
        auto last = first;
        while( last != _nameValueMap.end( ) && last->first.starts_with( base ) ) ++last;
        _erase( first, last );
    }
    else if( const auto found = _nameValueMap.find( lname ); found != _nameValueMap.end( ) )
        _erase( found, std::next( found ) );
    _changed( );
    _notify( lname );
}

// ---- Queues.
void GInstance::enqueue( GWStringView name, const GString& item )
{
    GCALL( GInstance );
    if( !GVERIFY( !name.empty( ) ) ) return;
    const GFoldedName folded( name );
    const GWStringView lname = folded.view( );
    const Writing writing( *this );
    auto found = _queueMap.find( lname );
    if( found == _queueMap.end( ) ) found = _queueMap.try_emplace( folded.text( ) ).first;
    std::deque<GString>& queue = found->second;
    if( queue.size( ) >= MAX_QUEUE_LENGTH )
    {
        GLOG( u"WARNING Queue '", lname, u"' is full, dropping its oldest item, ignoring." );
        queue.pop_front( );
    }
    queue.push_back( item );
    _notify( lname );
    if( const auto waker = _wakerMap.find( lname ); waker != _wakerMap.end( ) ) GVERIFY( GEventSet( waker->second ) );
}
void GInstance::enqueue( GWStringView name, const GHTTPHeaders& message )
{
    enqueue( name, message.serialize( ) );
}
bool GInstance::dequeue( GWStringView name, GString& out )
{
    GCALL( GInstance );
    if( !GVERIFY( !name.empty( ) ) ) return false;
    const GFoldedName lname( name );
    {
        // Services ask again and again, mostly for nothing.
        const Reading reading( *this );
        if( !_lengthOf( lname.view( ) ) ) return false;
    }
    const Writing writing( *this );
    const auto found = _queueMap.find( lname.view( ) );
    if( found == _queueMap.end( ) || found->second.empty( ) ) return false;
    out = std::move( found->second.front( ) );
    found->second.pop_front( );
    _notify( lname.view( ) );
    return true;
}
bool GInstance::index( GWStringView name, int i, GString& out )
{
    GCALL( GInstance );
    const GFoldedName lname( name );
    {
        const Reading reading( *this );
        if( i < 0 || static_cast<size_t>( i ) >= _lengthOf( lname.view( ) ) ) return false;
        const auto found = _queueMap.find( lname.view( ) );
        if( found != _queueMap.end( ) && static_cast<size_t>( i ) < found->second.size( ) )
        {
            out = found->second[static_cast<size_t>( i )];
            return true;
        }
    }
    GLOG( u"WARNING Somehow indexed past end of queue '", name, u", ignoring." );
    return false;
}
int GInstance::length( GWStringView name )
{
    GCALL( GInstance );
    const GFoldedName lname( name );
    const Reading reading( *this );
    return static_cast<int>( _lengthOf( lname.view( ) ) );
}
size_t GInstance::getNameCount( )
{
    GCALL( GInstance );
    const Reading reading( *this );
    return _nameValueMap.size( ) + _queueMap.size( );
}
size_t GInstance::_lengthOf( GWStringView lname ) const
{
    const auto found = _queueMap.find( lname );
    return found == _queueMap.end( ) ? 0 : found->second.size( );
}

void GInstance::setWaker( GWStringView name, GEvent event )
{
    GCALL( GInstance );
    const GFoldedName lname( name );
    const Writing writing( *this );
    if( event )
        _wakerMap[lname.text( )] = event;
    else if( const auto found = _wakerMap.find( lname.view( ) ); found != _wakerMap.end( ) )
        _wakerMap.erase( found );
}

// ---- Watchers.
void GInstance::watch( GWStringView name, GNotifyHandle notify, int arg )
{
    GCALL( GInstance );
    GPRECONDITION( notify );
    const Writing writing( *this );
    _watchMap[GFoldedName( name ).text( )].push_back( { notify, arg } );
}
void GInstance::unwatch( GWStringView name, GNotifyHandle notify, int arg )
{
    GCALL( GInstance );
    const Writing writing( *this );
    const auto found = _watchMap.find( GFoldedName( name ).view( ) );
    if( found != _watchMap.end( ) )
    {
        const auto isSame = [&]( const Watcher& watcher ) { return watcher.notify == notify && watcher.arg == arg; };
        const auto watcher = std::find_if( found->second.begin( ), found->second.end( ), isSame );
        if( watcher != found->second.end( ) )
        {
            found->second.erase( watcher );
            if( found->second.empty( ) ) _watchMap.erase( found );
            return;
        }
    }
    GLOG( u"WARNING Unwatched '", name, u"' when it wasn't being watched." );
}
