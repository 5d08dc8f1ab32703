#include "client/media/GSharedEncoding.h"

#include <algorithm>

namespace
{
// Large pictures of different rates keep this distance, so that they do not leave in one burst.
constexpr uint64_t KEY_PICTURE_SPACING = 500000;
// The distances of all encoders fit into this time.
constexpr uint64_t KEY_PICTURE_ROUND = 4000000;
} // namespace

GSharedEncoding::GSharedEncoding( GInstance* instance, GMegaPort* port )
    : _instance( instance ), _port( port ), _videoMutex( GMutexOpen( ) ), _audioMutex( GMutexOpen( ) ),
      _audioEncoder( port )
{
}

GSharedEncoding::~GSharedEncoding( )
{
    GASSERT( _videoEncoders.empty( ) );
    GMutexClose( _videoMutex );
    GMutexClose( _audioMutex );
}

void GSharedEncoding::add( GVideoCaptureStream* stream )
{
    if( stream->isAudioWanted( ) )
    {
        const GMutexScope scope( _audioMutex );
        _audioEncoder.add( stream );
    }
    const int fps = stream->getWantedFPS( );
    if( fps <= 0 ) return;
    const GMutexScope scope( _videoMutex );
    _videoEncoders.try_emplace( fps, _instance, _port, fps ).first->second.add( stream );
}

void GSharedEncoding::remove( const GVideoCaptureStream* stream )
{
    {
        const GMutexScope scope( _audioMutex );
        _audioEncoder.remove( stream );
    }
    const GMutexScope scope( _videoMutex );
    for( auto entry = _videoEncoders.begin( ); entry != _videoEncoders.end( ); ++entry )
    {
        if( !entry->second.remove( stream ) ) continue;
        if( entry->second.empty( ) ) _videoEncoders.erase( entry );
        return;
    }
}

void GSharedEncoding::onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length )
{
    const GMutexScope scope( _videoMutex );
    GPRECONDITION( buffer && length >= 0 );
    if( _videoEncoders.empty( ) ) return;
    const uint64_t spacing = std::min( KEY_PICTURE_SPACING, KEY_PICTURE_ROUND / _videoEncoders.size( ) );
    for( auto& [fps, encoder] : _videoEncoders )
    {
        const bool mayRefresh = timestamp - _lastKeyPicture >= spacing;
        if( encoder.onVideoFrame( timestamp, format, buffer, length, mayRefresh ) ) _lastKeyPicture = timestamp;
    }
}

void GSharedEncoding::onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length )
{
    const GMutexScope scope( _audioMutex );
    GPRECONDITION( buffer && length >= 0 );
    _audioEncoder.onAudioFrame( timestamp, format, buffer, length );
}
