// The headers of one message: wide names with wide values, in the order of the names' code units, each name once. All text lies in
// one storage that is kept when the table is emptied, so that a message that is read into again takes nothing from the heap.
// A plain value without a lock. Views are good until the next change of the table.
#pragma once

#include "base/GTypes.h"

class GHeaderTable
{
public:
    struct Header
    {
        GWStringView name;
        GWStringView value;
    };
    class Iterator
    {
    public:
        Iterator( const GHeaderTable& table, size_t index ) : _table( &table ), _index( index ) {}
        Header operator*( ) const { return _table->at( _index ); }
        Iterator& operator++( )
        {
            ++_index;
            return *this;
        }
        bool operator==( const Iterator& other ) const { return _index == other._index; }

    private:
        const GHeaderTable* _table;
        size_t _index;
    };

    GHeaderTable( ) = default;
    GHeaderTable( const GHeaderTable& other );
    GHeaderTable( GHeaderTable&& other ) noexcept;
    GHeaderTable& operator=( const GHeaderTable& other ); // Copies what is in use, not the room.
    GHeaderTable& operator=( GHeaderTable&& other ) noexcept;
    ~GHeaderTable( ) = default;

    bool empty( ) const { return _records.empty( ); }
    size_t size( ) const { return _records.size( ); }
    Iterator begin( ) const { return { *this, 0 }; }
    Iterator end( ) const { return { *this, size( ) }; }
    Header at( size_t index ) const;

    bool contains( GWStringView name ) const;
    GWStringView get( GWStringView name ) const;       // Empty when absent.
    void set( GWStringView name, GWStringView value ); // Views into this table are allowed.
    bool erase( GWStringView name );                   // True when it was there.
    void clear( );

    // ---- For a parser, which writes the text of names and values itself: it asks for room, takes what it has filled, appends the
    // header that the last units make, and sorts once at the end. In between only these may be called.
    // Room for that many units more.
    char16_t* room( size_t units );
    void take( size_t units ) { _used += units; }
    void giveBack( size_t units ) { _used -= units; }
    void append( size_t nameUnits, size_t valueUnits );
    // Orders the headers; of equal names the last one stays. True when they came in order, each once.
    bool sort( );

private:
    struct Record
    {
        size_t begin; // Of the name; the value follows at `value`.
        size_t nameUnits;
        size_t value;
        size_t valueUnits;
    };
    GWStringView _name( const Record& record ) const { return { _text.data( ) + record.begin, record.nameUnits }; }
    size_t _lowerBound( GWStringView name ) const;
    bool _holds( size_t index, GWStringView name ) const;
    size_t _write( GWStringView text );
    void _compact( size_t units );

    std::vector<char16_t> _text; // The storage, of which the first _used units are in use.
    size_t _used = 0;
    std::vector<Record> _records;
};
