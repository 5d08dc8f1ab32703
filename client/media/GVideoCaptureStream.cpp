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
constexpr int MAXIMUM_ENCODED_CHUNK = 1400;
constexpr int ENCODED_SHARE = 4; // Speex turns four bytes of samples into less than one.
// The remedy against smearing: a lost key picture is repaired within this time.
constexpr uint64_t ENCODER_LIFE = 8 * SECOND;
constexpr int MAXIMUM_FPS = 30;

// The largest centred square whose edge is a multiple of 16.
GRect centredSquare( const GImageFormat& format )
{
    const int edge = std::min( format.width, format.height ) & ~15;
    const int left = ( format.width - edge ) / 2;
    const int top = ( format.height - edge ) / 2;
    return { left, top, left + edge, top + edge };
}
const char16_t* yesNo( bool yes )
{
    return yes ? u"YES" : u"NO";
}
} // namespace

GVideoCaptureStream::GVideoCaptureStream( GInstance* instance, GMegaPort* port, const GHTTPHeaders& headers )
    : _instance( instance ), _port( port ), _audioMutex( GMutexOpen( ) ), _videoMutex( GMutexOpen( ) ),
      _streamName( GConcat( instance->get( u"Local_User_GUID" ), u"@", instance->get( u"Local_Device_GUID" ) ) ),
      _ssrc( static_cast<uint32_t>( GRandom( ) ) ), _sendToHost( headers.get( u"Send-To" ) ),
      _sendFromHost( headers.get( u"Send-From" ) )
{
    GLOGIF( 'v', u"Creating stream" );
    GVERIFY( GValidHost( _sendToHost ) );
    GVERIFY( GValidHost( _sendFromHost ) );
    _sendReport( );
}

GVideoCaptureStream::~GVideoCaptureStream( )
{
    delete _theoraEncoder;
    delete _speexEncoder;
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
    GLOGIF( 'v', u"Resetting stream, shutting down audio (", yesNo( _speexEncoder ), u"), video (",
            yesNo( _theoraEncoder ), u")" );
    {
        const GMutexScope audio( _audioMutex );
        _resetAudio( );
    }
    const GMutexScope video( _videoMutex );
    _resetVideo( );
}

void GVideoCaptureStream::_resetAudio( )
{
    delete _speexEncoder;
    _speexEncoder = nullptr;
    _audioFormat = { 0, 0, 0 };
    // A receiver drops what is not above the last number, so the remedy goes on counting.
    if( !_isRobust( ) ) _audioSequence = 0;
    if( _capturedAudioBytes ) GLOGIF( 'v', u"Captured ", _capturedAudioBytes, u" audio bytes" );
    _capturedAudioBytes = 0;
}

void GVideoCaptureStream::_resetVideo( )
{
    delete _theoraEncoder;
    _theoraEncoder = nullptr;
    _imageFormat = GImageFormat( );
}

void GVideoCaptureStream::_onVideoFormatSet( const GImageFormat& format )
{
    _resetVideo( );
    _imageFormat = format;
    const GRect cropRect = centredSquare( format );
    const int size = static_cast<int>( _instance->calc( u"Video_Size" ) );
    if( GRectEmpty( cropRect ) || size <= 0 || size % 16 ) return;
    if( size != cropRect.width( ) )
        GLOG( u"WARNING Non-ideal video match; will resize from ", cropRect.width( ), u" to ", size );
    GLOGIF( 'v', u"onVideoFormatSet( videoEnabled=", _videoEnabled, u", fps=", _fps, u", _imageFormat=( type=",
            format.type, u", width=", format.width, u", height=", format.height, u" ) )" );
    _theoraEncoder = GSAFENEW( GTheoraEncoder, ( format, cropRect, size, size, std::max( _fps, 1 ) ) );
}

void GVideoCaptureStream::onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length )
{
    const GMutexScope scope( _videoMutex );
    GPRECONDITION( buffer && length >= 0 );
    if( !_videoEnabled || _fps <= 0 ) return;
    const bool due = timestamp - _lastVideoTime > static_cast<uint64_t>( SECOND / _fps );
    const bool stale = due && _isRobust( ) && timestamp - _encoderStart > ENCODER_LIFE;
    if( !_theoraEncoder || format != _imageFormat || stale )
    {
        _onVideoFormatSet( format );
        _encoderStart = timestamp;
    }
    if( !_theoraEncoder || !due ) return;
    GASSERT( _theoraEncoder->getOutputWidth( ) == _theoraEncoder->getOutputHeight( ) );
    _lastVideoTime = timestamp;
    _theoraEncoder->encode( buffer, length, _videoFrame );
    if( _videoFrame.empty( ) ) return;
    GLOGIF( 'V', u"Sending new video frame, timestamp=", timestamp, u" (", _videoFrame.size( ), u" bytes)" );
    _sendFrame( GRTP_VIDEO, ++_videoSequence, static_cast<uint32_t>( timestamp / VIDEO_TIMESTAMP_UNIT ),
                static_cast<uint32_t>( _theoraEncoder->getOutputWidth( ) ), _videoFrame );
}

void GVideoCaptureStream::_onAudioFormatSet( const GAudioFormat& format )
{
    _resetAudio( );
    _audioFormat = format;
    GLOGIF( 'v', u"onAudioFormatSet( audioEnabled=", _audioEnabled, u", frequency=", format.frequency, u" )" );
    GWaveFormat wave = GWaveFormatMono16( static_cast<uint32_t>( format.frequency ) );
    wave.wBitsPerSample = static_cast<uint16_t>( format.bytesPerSample * 8 );
    _speexEncoder = GSAFENEW( GSpeexEncoder, ( wave ) );
}

void GVideoCaptureStream::onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length )
{
    const GMutexScope scope( _audioMutex );
    GPRECONDITION( buffer && length >= 0 );
    if( !_audioEnabled ) return;
    if( !_speexEncoder || format.bytesPerSample != _audioFormat.bytesPerSample ||
        format.frequency != _audioFormat.frequency )
        _onAudioFormatSet( format );
    int numChunks = 1;
    while( length / numChunks / ENCODED_SHARE > MAXIMUM_ENCODED_CHUNK ) numChunks *= 2;
    GVERIFY( !(length % numChunks) );
    const int frameSize = _speexEncoder->getFrameSize( );
    const int chunkSize = ( length / numChunks + frameSize - 1 ) / frameSize * frameSize;
    for( int offset = 0; offset < length; offset += chunkSize )
    {
        const int thisChunkSize = std::min( chunkSize, length - offset );
        const bool whole = GVERIFY( !(thisChunkSize % frameSize) );
        _capturedAudioBytes += thisChunkSize;
        _audioFrame.clear( );
        if( whole )
            _speexEncoder->encode( buffer + offset, thisChunkSize, _audioFrame );
        else
        {
            // A device that delivers broken frames is heard all the same, with silence up to the next frame.
            _audioPadded.assign( buffer + offset, static_cast<size_t>( thisChunkSize ) );
            _audioPadded.resize( static_cast<size_t>( ( thisChunkSize + frameSize - 1 ) / frameSize * frameSize ),
                                 '\0' );
            _speexEncoder->encode( _audioPadded.data( ), static_cast<int>( _audioPadded.size( ) ), _audioFrame );
        }
        GLOGIF( 'A', u"Sending new audio frame, timestamp=", timestamp, u" (", _audioFrame.size( ), u" bytes)" );
        _sendFrame( GRTP_AUDIO, ++_audioSequence, static_cast<uint32_t>( timestamp / AUDIO_TIMESTAMP_UNIT ),
                    static_cast<uint32_t>( _audioFormat.frequency ), _audioFrame );
    }
}

void GVideoCaptureStream::_sendFrame( int payloadType, uint16_t sequence, uint32_t timestamp, uint32_t formatWord,
                                      const GString& frame )
{
    GString& packet = payloadType == GRTP_AUDIO ? _audioPacket : _videoPacket;
    char prefix[4];
    GWriteU32( prefix, formatWord );
    GRTPCompose( packet, payloadType, sequence, timestamp, _ssrc, prefix, sizeof( prefix ), frame.data( ),
                 static_cast<int>( frame.size( ) ) );
    _port->send( _sendFromHost, _sendToHost, packet.data( ), static_cast<int>( packet.size( ) ) );
}
