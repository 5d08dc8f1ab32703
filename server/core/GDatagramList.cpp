#include "server/core/GDatagramList.h"

GString& GDatagramList::add( size_t socket, std::string_view to )
{
    if( _count == _items.size( ) ) _items.emplace_back( );
    Item& item = _items[_count++];
    item.socket = socket;
    item.to.assign( to );
    item.bytes.clear( );
    return item.bytes;
}
void GDatagramList::clear( )
{
    _count = 0;
    if( _items.size( ) > MAX_KEPT ) _items.resize( MAX_KEPT );
}
