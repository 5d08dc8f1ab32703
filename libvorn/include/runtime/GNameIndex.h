// Finds the entries of an ordered map by the hash of their folded names, in one or two steps whatever their number. The map owns the
// entries; the index holds their addresses, which a map never changes.
#pragma once

#include "base/GTypes.h"

#include <cstring>

// A name with its 26 ASCII capitals lowered and its hash, which differs from run to run: names may come from strangers. Short names
// are folded in place, so that a look-up allocates nothing.
class GFoldedName
{
public:
    explicit GFoldedName( GWStringView name );
    GFoldedName( const GFoldedName& ) = delete;
    GFoldedName& operator=( const GFoldedName& ) = delete;
    GWStringView view( ) const { return _view; }
    GWString text( ) const { return GWString( _view ); }
    uint64_t hash( ) const { return _hash; }

private:
    static constexpr size_t MAX_SHORT = 128;
    char16_t _short[MAX_SHORT];
    GWString _long;
    GWStringView _view;
    uint64_t _hash;
};

// `Entry` is the value type of the map: a pair whose first is the folded name.
template <typename Entry>
class GNameIndex
{
public:
    // Null when there is no such entry.
    Entry* find( const GFoldedName& name ) const
    {
        if( _slots.empty( ) ) return nullptr;
        for( size_t i = name.hash( ) & _mask( ); _slots[i].entry; i = ( i + 1 ) & _mask( ) )
            if( _slots[i].hash == name.hash( ) && _isSame( _slots[i].entry->first, name.view( ) ) )
                return _slots[i].entry;
        return nullptr;
    }
    // Enters what is not there yet.
    void insert( uint64_t hash, Entry* entry )
    {
        if( ( _count + 1 ) * 2 > _slots.size( ) ) _grow( );
        size_t i = hash & _mask( );
        while( _slots[i].entry ) i = ( i + 1 ) & _mask( );
        _slots[i] = { hash, entry };
        ++_count;
    }
    // Takes out what is there.
    void erase( uint64_t hash, const Entry* entry )
    {
        size_t hole = hash & _mask( );
        while( _slots[hole].entry != entry ) hole = ( hole + 1 ) & _mask( );
        // Entries behind the hole that would not be found across it move up.
        for( size_t i = ( hole + 1 ) & _mask( ); _slots[i].entry; i = ( i + 1 ) & _mask( ) )
        {
            const size_t home = _slots[i].hash & _mask( );
            if( ( ( i - home ) & _mask( ) ) < ( ( i - hole ) & _mask( ) ) ) continue;
            _slots[hole] = _slots[i];
            hole = i;
        }
        _slots[hole] = { };
        --_count;
    }

private:
    struct Slot
    {
        uint64_t hash = 0;
        Entry* entry = nullptr;
    };
    size_t _mask( ) const { return _slots.size( ) - 1; }
    static bool _isSame( const GWString& a, GWStringView b )
    {
        return a.size( ) == b.size( ) && !std::memcmp( a.data( ), b.data( ), b.size( ) * sizeof( char16_t ) );
    }
    void _grow( )
    {
        std::vector<Slot> old( std::move( _slots ) );
        _slots = std::vector<Slot>( old.empty( ) ? 64 : old.size( ) * 2 );
        _count = 0;
        for( const Slot& slot : old )
            if( slot.entry ) insert( slot.hash, slot.entry );
    }

    std::vector<Slot> _slots; // A power of two, at most half of them taken.
    size_t _count = 0;
};
