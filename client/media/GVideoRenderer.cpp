#include "client/media/GVideoRenderer.h"

#include "client/drawing/GImageTools.h"
#include "client/media/GEchoReference.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cstring>

int GVideoRenderer_audioFeederProc( void* data );
int GVideoRenderer_videoFeederProc( void* data );

namespace
{
constexpr int64_t SECOND = 1000000;
constexpr int64_t AUDIO_FEEDER_SLEEP = 200000;
constexpr int64_t VIDEO_FEEDER_SLEEP = 100000;
constexpr int64_t MILLISECOND = 1000;
// Queued sound of one spurt is bounded, oldest first, as the pictures are: a peer must not fill the memory with what is never played.
constexpr int64_t MAXIMUM_AUDIO_SECONDS = 30;

int ringDistance( int from, int to, int size )
{
    return ( to - from + size ) % size;
}
} // namespace

GVideoRenderer::GVideoRenderer( GInstance* instance, const GWString& outImageName, int64_t prebuffer )
    : _instance( instance ), _outImageName( outImageName ), _prebuffer( prebuffer )
{
}

GVideoRenderer::~GVideoRenderer( )
{
    lock( );
    GLOGIF( 'v', u"Tearing down audio: numQueued=", _numQueued, u"bytes (remaining=", _audioBuffer.size( ),
            u"bytes), numCopied:", _numBytesWritten, u"bytes" );
    const int64_t audio = getAudioBufferedLength( ) / MILLISECOND;
    const int64_t video = getVideoBufferedLength( ) / MILLISECOND;
    if( audio || video ) GLOG( u"WARNING Clipping audio=", audio, u", video=", video );
    GLOGIF( 'v', u"Stopping feeder threads for '", _outImageName, u"'" );
    _stop = true;
    unlock( );
    if( _audioFeederThread ) GThreadClose( _audioFeederThread );
    if( _videoFeederThread ) GThreadClose( _videoFeederThread );
    GLOGIF( 'v', u"Feeder threads stopped for '", _outImageName, u"'" );
    if( _secondaryBuffer )
    {
        GSoundRingStop( _secondaryBuffer );
        GSoundRingClose( _secondaryBuffer );
    }
}

int64_t GVideoRenderer::_bytesToTime( int64_t bytes ) const
{
    return bytes / _bytesPerSample( ) * SECOND / static_cast<int64_t>( _audioFormat.nSamplesPerSec );
}

void GVideoRenderer::queueAudio( uint64_t timestamp, const GWaveFormat& format, const char* samples, int size )
{
    const GObjectLock scope( *this );
    GASSERT_TEXT( !_audioFormat.nSamplesPerSec || _audioFormat == format,
                  "!_audioFormat.nSamplesPerSec || !memcmp( &_audioFormat, &format, sizeof(WAVEFORMATEX) )" );
    _numQueued += size;
    _audioFormat = format;
    _audioBuffer.append( samples, static_cast<size_t>( size ) );
    const int64_t limit = MAXIMUM_AUDIO_SECONDS * static_cast<int64_t>( format.nAvgBytesPerSec );
    if( static_cast<int64_t>( _audioBuffer.size( ) ) > limit )
        GConsume( _audioBuffer, static_cast<int>( static_cast<int64_t>( _audioBuffer.size( ) ) - limit ) );
    const int64_t buffered =
        _audioFormat.nSamplesPerSec ? _bytesToTime( static_cast<int64_t>( _audioBuffer.size( ) ) ) : 0;
    GLOGIF( 'A', u"Queuing ", size, u"bytes (", _audioBuffer.size( ), u"bytes total)" );
    if( _firstTimestamp == UINT64_MAX ) _firstTimestamp = timestamp;
    if( _started )
    {
        if( !_secondaryBuffer ) _audioBuffer.clear( );
        return;
    }
    if( buffered > _prebuffer )
        _playNow( );
    else
        GLOGIF( 'A', u"Prebuffered ", size, u" bytes (", buffered / MILLISECOND, u"ms)..." );
}

void GVideoRenderer::_playNow( )
{
    const GObjectLock scope( *this );
    _started = true;
    if( _secondaryBuffer || !_audioFormat.nSamplesPerSec ) return;
    GLOGIF( 'v', u"Starting DirectSound..." );
    // One second of sound.
    _ringSize = static_cast<int>( static_cast<int64_t>( _bytesPerSample( ) ) *
                                  static_cast<int64_t>( _audioFormat.nSamplesPerSec ) * 1000 / 1000 );
    _secondaryBuffer = GSoundRingOpen( static_cast<int>( _audioFormat.nSamplesPerSec ), _ringSize );
    if( !_secondaryBuffer )
    {
        GLOG( u"WARNING Cannot play audio, ignoring." );
        _audioBuffer.clear( );
        return;
    }
    int frontBufferSize = 0, backBufferSize = 0;
    char* backBufferPtr = nullptr;
    char* const frontBufferPtr = _lockRing( 0, _ringSize, frontBufferSize, backBufferPtr, backBufferSize );
    GASSERT( !backBufferPtr && !backBufferSize );
    const int copied = _fillPart( frontBufferPtr, frontBufferSize );
    GSoundRingWrite( _secondaryBuffer, 0, _feed.data( ), _ringSize );
    if( copied < _ringSize ) _nextWritePosition = copied;
    _bytesUnplayed = _numBytesWritten = copied;
    GSoundRingPlay( _secondaryBuffer );
    _heed( 0, _feed, copied );
    GASSERT( !_audioFeederThread );
    _audioFeederThread = GThreadOpen( u"GVideoRenderer.audioFeeder", GVideoRenderer_audioFeederProc, this );
}

int GVideoRenderer_audioFeederProc( void* data )
{
    GVideoRenderer* renderer = static_cast<GVideoRenderer*>( data );
    GLOGIF( 'v', u"Started audio feeder for '", renderer->_outImageName, u"'" );
    GThreadSetPriority( 1 );
    while( renderer->_onAudioUpdate( ) )
    {
    }
    GLOGIF( 'v', u"Stopped audio feeder for '", renderer->_outImageName, u"'" );
    return 0;
}

int GVideoRenderer_videoFeederProc( void* data )
{
    GVideoRenderer* renderer = static_cast<GVideoRenderer*>( data );
    GLOGIF( 'v', u"Started video feeder for '", renderer->_outImageName, u"'" );
    GThreadSetPriority( 1 );
    while( renderer->_onVideoUpdate( ) )
    {
    }
    GLOGIF( 'v', u"Stopped video feeder for '", renderer->_outImageName, u"'" );
    return 0;
}

bool GVideoRenderer::_onAudioUpdate( )
{
    const GObjectLock scope( *this );
    int play = 0;
    int write = 0;
    if( GSoundRingGetCursors( _secondaryBuffer, play, write ) )
    {
        _skipDangerZone( play, write );
        _bytesUnplayed -= ringDistance( _lastPlayPosition, play, _ringSize );
        _lastPlayPosition = play;
        _lastWritePosition = write;
        _feedRing( play );
    }
    else
        _audioBuffer.clear( );
    if( _stop ) return false;
    unlock( );
    GThreadSleep( AUDIO_FEEDER_SLEEP );
    lock( );
    return !_stop;
}

// The device may be reading between its two cursors: writing there would be heard as noise.
void GVideoRenderer::_skipDangerZone( int play, int write )
{
    if( ringDistance( play, _nextWritePosition, _ringSize ) >= ringDistance( play, write, _ringSize ) ) return;
    GLOG( u"WARNING Skipping ahead of danger zone" );
    _nextWritePosition = write;
}

// The room for that part of the ring, which the ring's end may divide.
char* GVideoRenderer::_lockRing( int position, int length, int& frontBufferSize, char*& backBufferPtr,
                                 int& backBufferSize )
{
    _feed.resize( static_cast<size_t>( length ) );
    frontBufferSize = std::min( length, _ringSize - position );
    backBufferSize = length - frontBufferSize;
    backBufferPtr = backBufferSize ? _feed.data( ) + frontBufferSize : nullptr;
    return _feed.data( );
}

// Takes what the queue has, and silence for the rest; the bytes that were taken.
int GVideoRenderer::_fillPart( char* part, int size )
{
    const int copied = static_cast<int>( std::min<size_t>( _audioBuffer.size( ), static_cast<size_t>( size ) ) );
    std::memcpy( part, _audioBuffer.data( ), static_cast<size_t>( copied ) );
    std::memset( part + copied, 0, static_cast<size_t>( size - copied ) );
    GConsume( _audioBuffer, copied );
    return copied;
}

// Fills the whole free part of the ring: samples first, then silence that the next round overwrites.
void GVideoRenderer::_feedRing( int play )
{
    const int numToLock = ringDistance( _nextWritePosition, play, _ringSize );
    int frontBufferSize = 0, backBufferSize = 0;
    char* backBufferPtr = nullptr;
    char* const frontBufferPtr =
        _lockRing( _nextWritePosition, numToLock, frontBufferSize, backBufferPtr, backBufferSize );
    int copied = _fillPart( frontBufferPtr, frontBufferSize );
    if( backBufferPtr ) copied += _fillPart( backBufferPtr, backBufferSize );
    if( !GSoundRingWrite( _secondaryBuffer, _nextWritePosition, _feed.data( ), numToLock ) )
    {
        _audioBuffer.clear( );
        return;
    }
    _heed( ringDistance( play, _nextWritePosition, _ringSize ), _feed, copied );
    _numBytesWritten += copied;
    _bytesUnplayed += copied;
    const int64_t samplesBefore = _samplesCopied;
    _samplesCopied += copied / _bytesPerSample( );
    _nextWritePosition = ( _nextWritePosition + copied ) % _ringSize;
    _updateClock( samplesBefore );
    const int64_t ahead = ringDistance( play, _nextWritePosition, _ringSize );
    _audioEndTime = GTimeGetTime( ) + static_cast<uint64_t>( _bytesToTime( ahead ) + _bytesToTime( copied ) );
}

// What stands so many bytes before the ear comes back by the microphone.
void GVideoRenderer::_heed( int ahead, const GString& samples, int length )
{
    GEchoReference_write( GTimeGetTime( ) + static_cast<uint64_t>( _bytesToTime( ahead ) ),
                          static_cast<int>( _audioFormat.nSamplesPerSec ),
                          reinterpret_cast<const int16_t*>( samples.data( ) ), length / _bytesPerSample( ), this );
}

// The samples of the first fill are not counted: the clock only gates the pictures.
void GVideoRenderer::_updateClock( int64_t samplesBefore )
{
    const uint64_t now = GTimeGetTime( );
    const uint64_t mediaTime =
        _firstTimestamp +
        static_cast<uint64_t>( samplesBefore * SECOND / static_cast<int64_t>( _audioFormat.nSamplesPerSec ) );
    _clockOffset = static_cast<int64_t>( now - mediaTime );
    if( !_audioStartTime ) _audioStartTime = now;
}

void GVideoRenderer::queueVideo( uint64_t timestamp, const GImageFormat& format, const GString& pixels )
{
    const GObjectLock scope( *this );
    if( _firstTimestamp == UINT64_MAX ) _firstTimestamp = timestamp;
    if( !_audioFormat.nSamplesPerSec )
    {
        GImageTools_instanceWrite( _instance, _outImageName, format, pixels );
        return;
    }
    if( _videoFrames.isFull( ) ) _videoFrames.pop( );
    _queued = pixels;
    _videoFrames.put( timestamp, format, _queued );
    if( !_videoFeederThread )
        _videoFeederThread = GThreadOpen( u"GVideoRenderer.videoFeeder", GVideoRenderer_videoFeederProc, this );
}

bool GVideoRenderer::_onVideoUpdate( )
{
    const GObjectLock scope( *this );
    if( _videoFrames.isEmpty( ) || !_clockOffset )
    {
        if( _stop ) return false;
        unlock( );
        GThreadSleep( VIDEO_FEEDER_SLEEP );
        lock( );
        return !_stop;
    }
    const uint64_t timestamp = _videoFrames.getFront( ).time;
    const GImageFormat format = _videoFrames.getFront( ).format;
    _videoFrames.take( _shown );
    GLOGIF( 'V', u"videoTimestamp=", timestamp );
    unlock( );
    GImageTools_instanceWrite( _instance, _outImageName, format, _shown );
    lock( );
    _nextFrameTime = GTimeGetTime( );
    if( !_videoFrames.isEmpty( ) ) _nextFrameTime += _videoFrames.getFront( ).time - timestamp;
    return !_stop;
}

void GVideoRenderer::finish( )
{
    const GObjectLock scope( *this );
    const GString silence( static_cast<size_t>( _ringSize ), '\0' );
    queueAudio( 0, _audioFormat, silence.data( ), static_cast<int>( silence.size( ) ) );
    _playNow( );
}

bool GVideoRenderer::done( ) const
{
    const GObjectLock scope( *this );
    return getAudioBufferedLength( ) == 0 && _audioBuffer.empty( );
}

int64_t GVideoRenderer::getAudioBufferedLength( ) const
{
    const GObjectLock scope( *this );
    if( !_audioFormat.nSamplesPerSec )
    {
        GASSERT( _audioBuffer.empty( ) );
        return 0;
    }
    // The doubling stands: readers of the value know it as twice the queue's time.
    return _bytesToTime( static_cast<int64_t>( _audioBuffer.size( ) ) ) * 2;
}

int64_t GVideoRenderer::getVideoBufferedLength( ) const
{
    const GObjectLock scope( *this );
    const int64_t span = _videoFrames.isEmpty( )
                             ? 0
                             : static_cast<int64_t>( _videoFrames.getBack( ).time - _videoFrames.getFront( ).time );
    if( !_audioStartTime ) return span;
    const int64_t ahead = static_cast<int64_t>( _nextFrameTime + static_cast<uint64_t>( span ) - GTimeGetTime( ) );
    return ahead > 0 ? ahead : 0;
}
