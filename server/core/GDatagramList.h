// Datagrams that a role wants to send, in order. A list that is cleared and filled again keeps the room of all texts and soon takes
// nothing from the heap. Network thread only.
#pragma once

#include "base/GTypes.h"

class GDatagramList
{
public:
    struct Item
    {
        size_t socket = 0; // Which of the role's sockets sends it.
        GString to;        // "ip:port".
        GString bytes;
    };

    bool empty( ) const { return _count == 0; }
    size_t size( ) const { return _count; }
    const Item& operator[]( size_t index ) const { return _items[index]; }
    const Item& at( size_t index ) const
    {
        return _items.at( index < _count ? index : _items.size( ) );
    } // Throws beyond it.
    const Item& back( ) const { return _items[_count - 1]; }
    const Item* begin( ) const { return _items.data( ); }
    const Item* end( ) const { return _items.data( ) + _count; }
    // The bytes of one more datagram, empty, to be filled; good until the next change of the list.
    GString& add( size_t socket, std::string_view to );
    void add( size_t socket, std::string_view to, std::string_view bytes ) { add( socket, to ).assign( bytes ); }
    void clear( );

private:
    static constexpr size_t MAX_KEPT = 1024;
    std::vector<Item> _items; // Those behind _count only keep their room.
    size_t _count = 0;
};
