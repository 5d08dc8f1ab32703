#include "client/media/GPictureQueue.h"

#include "base/GPortable.h"

#include <algorithm>

void GPictureQueue::put( uint64_t time, const GImageFormat& format, GString& pixels )
{
    GPRECONDITION( !isFull( ) );
    if( !isEmpty( ) ) time = std::max( time, getBack( ).time );
    Picture& picture = _pictures[static_cast<size_t>( ( _first + _count++ ) % SIZE )];
    picture.time = time;
    picture.format = format;
    picture.pixels.swap( pixels );
}

const GPictureQueue::Picture& GPictureQueue::getFront( ) const
{
    GPRECONDITION( !isEmpty( ) );
    return _pictures[static_cast<size_t>( _first )];
}

const GPictureQueue::Picture& GPictureQueue::getBack( ) const
{
    GPRECONDITION( !isEmpty( ) );
    return _pictures[static_cast<size_t>( ( _first + _count - 1 ) % SIZE )];
}

void GPictureQueue::pop( )
{
    GPRECONDITION( !isEmpty( ) );
    _first = ( _first + 1 ) % SIZE;
    --_count;
}
