// Maps of wide texts that are searched by a view: what was parsed once is found again without a parse and without memory.
// Plain values, one thread.
#pragma once

#include "base/GTypes.h"

#include <unordered_map>
#include <utility>
#include <vector>

struct GWStringHash
{
    using is_transparent = void;
    size_t operator( )( GWStringView text ) const { return std::hash<GWStringView>{ }( text ); }
};
template <typename T>
using GWStringMap = std::unordered_map<GWString, T, GWStringHash, std::equal_to<>>;

// A map of texts with a shortcut: a text is looked for first where the last one at its address was found. What is found is always
// compared, so that an address may be used again for anything.
template <typename T, size_t SLOTS = 8192>
class GWStringTable
{
public:
    using Entry = std::pair<const GWString, T>;

    Entry* find( GWStringView text )
    {
        Entry*& shortcut = _shortcuts[_slot( text )];
        if( shortcut && shortcut->first == text ) return shortcut;
        const auto found = _map.find( text );
        return found == _map.end( ) ? nullptr : shortcut = &*found;
    }
    // The text must not be there yet.
    Entry* insert( GWStringView text, T value ) { return &*_map.emplace( GWString( text ), std::move( value ) ).first; }
    void clear( )
    {
        _map.clear( );
        _shortcuts.assign( SLOTS, nullptr );
    }
    size_t size( ) const { return _map.size( ); }

private:
    static size_t _slot( GWStringView text )
    {
        const auto address = static_cast<uint64_t>( reinterpret_cast<uintptr_t>( text.data( ) ) );
        return static_cast<size_t>( ( address * 0x9E3779B97F4A7C15u ) >> 32u ) % SLOTS;
    }

    GWStringMap<T> _map;
    std::vector<Entry*> _shortcuts = std::vector<Entry*>( SLOTS, nullptr );
};
