#include "client/media/GPictureQueue.h"

#include "base/GPortable.h"

#include <algorithm>
#include <numeric>

GPictureQueue::GPictureQueue( )
{
    std::iota( _order.begin( ), _order.end( ), 0 );
}

void GPictureQueue::put( uint64_t time, const GImageFormat& format, GString& pixels )
{
    GPRECONDITION( !isFull( ) );
    if( !isEmpty( ) ) time = std::max( time, getBack( ).time );
    Picture& picture = _at( _count++ );
    picture.time = time;
    picture.format = format;
    picture.pixels.swap( pixels );
    _bytes += picture.pixels.size( );
}

const GPictureQueue::Picture& GPictureQueue::getFront( ) const
{
    GPRECONDITION( !isEmpty( ) );
    return _pictures[_order[static_cast<size_t>( _first )]];
}

const GPictureQueue::Picture& GPictureQueue::getBack( ) const
{
    GPRECONDITION( !isEmpty( ) );
    return _pictures[_order[static_cast<size_t>( ( _first + _count - 1 ) % SIZE )]];
}

void GPictureQueue::pop( )
{
    GPRECONDITION( !isEmpty( ) );
    _bytes -= getFront( ).pixels.size( );
    const size_t used = _order[static_cast<size_t>( _first )];
    _first = ( _first + 1 ) % SIZE;
    --_count;
    // The place behind the last gets the one with room, and its own goes to the free end.
    std::swap( _order[static_cast<size_t>( ( _first + SIZE - 1 ) % SIZE )],
               _order[static_cast<size_t>( ( _first + _count ) % SIZE )] );
    GASSERT( _order[static_cast<size_t>( ( _first + _count ) % SIZE )] == used );
}

void GPictureQueue::take( GString& pixels )
{
    GPRECONDITION( !isEmpty( ) );
    Picture& picture = _at( 0 );
    _bytes -= picture.pixels.size( );
    picture.pixels.swap( pixels );
    _bytes += picture.pixels.size( );
    pop( );
}
