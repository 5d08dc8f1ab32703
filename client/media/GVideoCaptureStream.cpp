#include "client/media/GVideoCaptureStream.h"

#include "base/GBytes.h"
#include "base/GRandom.h"
#include "client/transport/GRTP.h"

#include <algorithm>

namespace
{
constexpr int64_t SECOND = 1000000;
constexpr uint64_t VIDEO_TIMESTAMP_UNIT = 1000;
constexpr uint64_t AUDIO_TIMESTAMP_UNIT = 10000;
constexpr int MAXIMUM_FPS = 30;

const char16_t* yesNo( bool yes )
{
    return yes ? u"YES" : u"NO";
}
} // namespace

GVideoCaptureStream::GVideoCaptureStream( GInstance* instance, GMegaPort* port, const GHTTPHeaders& headers )
    : _instance( instance ), _port( port ), _audioMutex( GMutexOpen( ) ), _videoMutex( GMutexOpen( ) ),
      _streamName( GConcat( instance->get( u"Local_User_GUID" ), u"@", instance->get( u"Local_Device_GUID" ) ) ),
      _ssrc( static_cast<uint32_t>( GRandom( ) ) ), _sendToHost( headers.get( u"Send-To" ) ),
      _sendFromHost( headers.get( u"Send-From" ) ), _video( instance )
{
    GLOGIF( 'v', u"Creating stream" );
    GVERIFY( GValidHost( _sendToHost ) );
    GVERIFY( GValidHost( _sendFromHost ) );
    _sendReport( );
}

GVideoCaptureStream::~GVideoCaptureStream( )
{
    GMutexClose( _audioMutex );
    GMutexClose( _videoMutex );
}

void GVideoCaptureStream::_sendReport( )
{
    GString report;
    GRTCPSRCompose( report, _ssrc, GWideToUTF8( _streamName ) );
    _port->send( _sendFromHost, _sendToHost, report.data( ), static_cast<int>( report.size( ) ) );
}

void GVideoCaptureStream::setFormat( const GHTTPHeaders& headers )
{
    const GObjectLock scope( *this ); // In the order of reset( ): the object before its media.
    const GMutexScope audio( _audioMutex );
    const GMutexScope video( _videoMutex );
    reset( );
    _fps = static_cast<int>( std::clamp<int64_t>( headers.calc( u"Video-FPS" ), 0, MAXIMUM_FPS ) );
    _audioEnabled = headers.test( u"Audio-Enable" );
    _videoEnabled = headers.test( u"Video-Enable" );
    GLOGIF( 'v', u"Setting video format=( fps=", _fps, u", audioEnabled=", _audioEnabled, u", videoEnabled=",
            _videoEnabled, u" )" );
}

void GVideoCaptureStream::reset( )
{
    const GObjectLock scope( *this );
    GLOGIF( 'v', u"Resetting stream, shutting down audio (", yesNo( _audio.isMade( ) ), u"), video (",
            yesNo( _video.isMade( ) ), u")" );
    {
        const GMutexScope audio( _audioMutex );
        _resetAudio( );
    }
    const GMutexScope video( _videoMutex );
    _resetVideo( );
}

void GVideoCaptureStream::_resetAudio( )
{
    _audio.reset( );
    // A receiver drops what is not above the last number, so the remedy goes on counting.
    if( !_isRobust( ) ) _audioSequence = 0;
    if( _capturedAudioBytes ) GLOGIF( 'v', u"Captured ", _capturedAudioBytes, u" audio bytes" );
    _capturedAudioBytes = 0;
}

void GVideoCaptureStream::_resetVideo( )
{
    _video.reset( );
}

void GVideoCaptureStream::onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length )
{
    const GMutexScope scope( _videoMutex );
    GPRECONDITION( buffer && length >= 0 );
    if( !_videoEnabled || _fps <= 0 ) return;
    if( !_video.isMadeFor( format ) ) _video.make( format, _videoEnabled, _fps );
    const bool due = timestamp - _lastVideoTime > static_cast<uint64_t>( SECOND / _fps );
    if( !_video.isMade( ) || !due ) return;
    _lastVideoTime = timestamp;
    const GString& frame = _video.encode( buffer, length );
    if( !frame.empty( ) ) _send( composeVideo( timestamp, _video.getEdge( ), frame ) );
}

void GVideoCaptureStream::onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length )
{
    const GMutexScope scope( _audioMutex );
    GPRECONDITION( buffer && length >= 0 );
    if( !_audioEnabled ) return;
    if( !_audio.isMadeFor( format ) ) _resetAudio( );
    _audio.begin( format, buffer, length, _audioEnabled );
    while( const GString* frame = _audio.next( ) )
        _send( composeAudio( timestamp, format.frequency, _audio.getChunkLength( ), *frame ) );
}

GNetOutgoing GVideoCaptureStream::composeVideo( uint64_t timestamp, int edge, const GString& frame )
{
    GLOGIF( 'V', u"Sending new video frame, timestamp=", timestamp, u" (", frame.size( ), u" bytes)" );
    return _compose( _videoPacket, GRTP_VIDEO, ++_videoSequence,
                     static_cast<uint32_t>( timestamp / VIDEO_TIMESTAMP_UNIT ), static_cast<uint32_t>( edge ), frame );
}

GNetOutgoing GVideoCaptureStream::composeAudio( uint64_t timestamp, int frequency, int samplesLength,
                                                const GString& frame )
{
    _capturedAudioBytes += samplesLength;
    GLOGIF( 'A', u"Sending new audio frame, timestamp=", timestamp, u" (", frame.size( ), u" bytes)" );
    return _compose( _audioPacket, GRTP_AUDIO, ++_audioSequence,
                     static_cast<uint32_t>( timestamp / AUDIO_TIMESTAMP_UNIT ), static_cast<uint32_t>( frequency ),
                     frame );
}

GNetOutgoing GVideoCaptureStream::_compose( GString& packet, int payloadType, uint16_t sequence, uint32_t timestamp,
                                            uint32_t formatWord, const GString& frame )
{
    char prefix[4];
    GWriteU32( prefix, formatWord );
    GRTPCompose( packet, payloadType, sequence, timestamp, _ssrc, prefix, sizeof( prefix ), frame.data( ),
                 static_cast<int>( frame.size( ) ) );
    return { _sendToHost, packet };
}

void GVideoCaptureStream::_send( const GNetOutgoing& datagram )
{
    _port->send( _sendFromHost, _sendToHost, datagram.bytes.data( ), static_cast<int>( datagram.bytes.size( ) ) );
}
