#include "client/media/GSharedAudioEncoder.h"

#include "client/media/GSendTogether.h"

#include <algorithm>

void GSharedAudioEncoder::add( GVideoCaptureStream* stream )
{
    const auto place = std::find_if( _listeners.begin( ), _listeners.end( ),
                                     [stream]( const GVideoCaptureStream* one )
                                     { return one->getSendFrom( ) == stream->getSendFrom( ); } );
    _listeners.insert( place, stream );
    _datagrams.reserve( _listeners.size( ) );
}

void GSharedAudioEncoder::remove( const GVideoCaptureStream* stream )
{
    std::erase( _listeners, stream );
    if( _listeners.empty( ) ) _encoding.reset( );
}

void GSharedAudioEncoder::onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length )
{
    if( _listeners.empty( ) ) return;
    _encoding.begin( format, buffer, length, true );
    while( const GString* frame = _encoding.next( ) )
    {
        GSendTogether together( *_port, _datagrams );
        for( GVideoCaptureStream* stream : _listeners )
            together.add( stream->getSendFrom( ),
                          stream->composeAudio( timestamp, format.frequency, _encoding.getChunkLength( ), *frame ) );
    }
}
