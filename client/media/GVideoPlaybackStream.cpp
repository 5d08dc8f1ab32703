#include "client/media/GVideoPlaybackStream.h"

#include "base/GBytes.h"
#include "client/drawing/GImageTools.h"
#include "client/media/GSpeexEncoder.h"
#include "client/media/GTheoraEncoder.h"
#include "client/media/GVoiceGain.h"
#include "platform/GTime.h"

#include <algorithm>

namespace
{
constexpr int64_t INACTIVITY_TIMEOUT = 1000000;
constexpr int UNITY_GAIN = 100;
constexpr int MAXIMUM_GAIN = 400;
constexpr int64_t UPDATE_PERIOD = 100000;
// A picture waits at most so long for its sound; one that would have to wait this much longer is of another clock.
constexpr int64_t LONGEST_WAIT = 500000;
constexpr int64_t UNRELATED_WAIT = 2000000;
constexpr int FORMAT_WORD_SIZE = 4;
// Talks that still play out beside the present one; each has sound and perhaps threads of its own.
constexpr size_t MOST_SUNSETS = 4;
constexpr int64_t DEFAULT_PREBUFFER_MS = 500;
constexpr uint64_t TIMESTAMP_SCALE = 1000;
constexpr uint32_t MINIMUM_EDGE = 16;
constexpr uint32_t MAXIMUM_EDGE = 1024;
constexpr uint32_t MINIMUM_RATE = 8000;
constexpr uint32_t MAXIMUM_RATE = 48000;

bool isAudioRate( uint32_t rate )
{
    return rate == 0 || GWITHIN( MINIMUM_RATE, rate, MAXIMUM_RATE );
}
bool isVideoEdge( uint32_t edge )
{
    return GWITHIN( MINIMUM_EDGE, edge, MAXIMUM_EDGE ) && edge % 16 == 0;
}

// A sequence number is late when it does not lie in the half circle ahead of the last one, so that the counter may wrap.
bool isLate( uint16_t sequence, uint16_t last )
{
    return static_cast<int16_t>( static_cast<uint16_t>( sequence - last ) ) <= 0;
}
} // namespace

GVideoPlaybackStream::GVideoPlaybackStream( GInstance* instance, GMegaPort* port, const GHTTPHeaders& headers )
    : _instance( instance ), _port( port ), _name( headers.get( u"Buddy-Device-GUID" ) )
{
    const size_t at = _name.rfind( u'@' );
    _buddyGUID = _name.substr( 0, at );
    if( at != GWString::npos ) _deviceGUID = _name.substr( at + 1 );
    _imageName = _key( u"_Image" );
    _videoLengthName = _key( u"_Video_Buffer_Length" );
    _audioLengthName = _key( u"_Audio_Buffer_Length" );
    _prebufferName = _key( u"_Prebuffer_MS" );
    _gainName = _key( u"_Gain" );
    GLOGIF( 'v', u"Creating video stream" );
    if( !_instance->isSet( u"Prebuffer_MS" ) ) _instance->set( u"Prebuffer_MS", DEFAULT_PREBUFFER_MS );
    _makeRenderer( );
    _instance->set( _key( u"_Video_Playback_Online" ), u"true" );
}

GVideoPlaybackStream::~GVideoPlaybackStream( )
{
    GLOGIF( 'v', u"Destroying video stream" );
    _instance->clear( _key( u"_Video_Playback_Online" ) );
    _instance->clear( _prebufferName );
    _stopListeningTo( );
    delete _videoDecoder;
    delete _audioDecoder;
    GVALIDPTR( _videoRenderer );
    delete _videoRenderer;
    for( GVideoRenderer* renderer : _sunsetList )
    {
        GVALIDPTR( renderer );
        delete renderer;
    }
}

void GVideoPlaybackStream::recv( const GMegaPortBucket& bucket )
{
    const GObjectLock scope( *this );
    if( !_isAffordable( ) ) return;
    _nextUpdate = 0;
    GRTPHeader header;
    int length = 0;
    const char* payload =
        GDecomposeRTP( bucket.buffer.data( ), static_cast<int>( bucket.buffer.size( ) ), header, length );
    if( !payload )
    {
        GLOG( u"WARNING Malformed RTP packet received from '", _name, u"' (", bucket.remoteHost, u"), ignoring." );
        return;
    }
    const uint64_t timestamp = header.timestamp * TIMESTAMP_SCALE;
    if( header.ssrc != _ssrc && _isRobust( ) )
    {
        _lastAudioSequence = _lastVideoSequence = 0;
        if( _talk.playout ) _resetAudio( 0 );
    }
    _ssrc = header.ssrc;
    if( header.payloadType == GRTP_AUDIO )
        _recvAudio( header, timestamp, payload, length );
    else if( header.payloadType == GRTP_VIDEO )
        _recvVideo( header, timestamp, payload, length );
    else
        GLOG( u"WARNING Received unknown RTP payload type #", header.payloadType, u", ignoring." );
}

bool GVideoPlaybackStream::_isAffordable( )
{
    const bool allowed = _budget.allows( GTimeGetTime( ) );
    if( allowed )
        _budget.charge( GMediaBudget::PACKET );
    else if( _budget.takeRefusal( ) )
        GLOG( u"WARNING Packets of '", _name, u"' cost more than a stream may, ignoring." );
    return allowed;
}

void GVideoPlaybackStream::_recvAudio( const GRTPHeader& header, uint64_t timestamp, const char* payload, int length )
{
    GLOGIF( 'A', u"Received frame audio packet (", length, u" bytes)" );
    if( length < FORMAT_WORD_SIZE || !isAudioRate( GReadU32( payload ) ) )
    {
        GLOG( u"WARNING Malformed RTP AUDIO DATA packet, ignoring." );
        return;
    }
    if( _isTalk( ) )
    {
        _recvTalk( header, payload, length );
        return;
    }
    if( isLate( header.sequence, _lastAudioSequence ) ) return;
    const uint16_t expected = static_cast<uint16_t>( _lastAudioSequence + 1 );
    if( header.sequence != expected )
        GLOG( u"WARNING Expecting audio packet #", expected, u" but actually received #", header.sequence );
    _lastAudioSequence = header.sequence;
    _resetAudio( GReadU32( payload ) );
    if( length == FORMAT_WORD_SIZE ) return;
    _lastAudioTime = GTimeGetTime( );
    if( !_audioDecoder )
    {
        GLOG( u"WARNING Received AUDIO DATA packet before audio decoder initialized (maybe we missed the headers?), "
              u"ignoring." );
        return;
    }
    GASSERT( _videoRenderer );
    _budget.charge( ( length - FORMAT_WORD_SIZE ) * GMediaBudget::SOUND_BYTE );
    if( !_audioDecoder->decode( payload + FORMAT_WORD_SIZE, length - FORMAT_WORD_SIZE, _decodedAudio ) )
    {
        GLOG( u"WARNING Received invalid audio frame packet, ignoring." );
        return;
    }
    GVoiceGain( reinterpret_cast<int16_t*>( _decodedAudio.data( ) ), static_cast<int>( _decodedAudio.size( ) / 2 ),
                _readGain( ) );
    _videoRenderer->queueAudio( timestamp, _audioDecoder->getWaveFormat( ), _decodedAudio.data( ),
                                static_cast<int>( _decodedAudio.size( ) ) );
    _instance->set( _audioLengthName, _videoRenderer->getAudioBufferedLength( ) / 1000 );
}

// In per cent, 100 when nothing is set. Read when it has changed.
int GVideoPlaybackStream::_readGain( )
{
    const uint64_t generation = _instance->getGeneration( );
    if( generation == _gainGeneration ) return _gain;
    _gainGeneration = generation;
    const uint64_t time = _instance->getTimestamp( _gainName );
    if( time == _gainTime ) return _gain;
    _gainTime = time;
    _gain = _instance->isSet( _gainName )
                ? static_cast<int>( std::clamp<int64_t>( _instance->calc( _gainName ), 0, MAXIMUM_GAIN ) )
                : UNITY_GAIN;
    return _gain;
}

// The playout puts packets in order and bridges what is lost; here only those count that could belong to another talk.
void GVideoPlaybackStream::_recvTalk( const GRTPHeader& header, const char* payload, int length )
{
    const uint32_t rate = GReadU32( payload );
    const bool newer = static_cast<int32_t>( header.timestamp - _lastAudioStamp ) > 0;
    const bool welcome = _talk.playout ? _talk.playout->isWelcome( header.sequence, header.timestamp )
                                       : !isLate( header.sequence, _lastAudioSequence ) || newer;
    if( !welcome && ( !_talk.playout || rate != _audioRate ) ) return;
    if( welcome )
    {
        _lastAudioSequence = header.sequence;
        _lastAudioStamp = header.timestamp;
        const uint64_t before = _lastAudioTime;
        _resetAudio( rate );
        _lastAudioTime = length > FORMAT_WORD_SIZE ? GTimeGetTime( ) : rate ? before : 0;
    }
    if( !_talk.playout ) return;
    _budget.charge( ( length - FORMAT_WORD_SIZE ) * GMediaBudget::SOUND_BYTE );
    _talk.playout->setGain( _readGain( ) );
    _talk.playout->put( header.sequence, header.timestamp, payload + FORMAT_WORD_SIZE, length - FORMAT_WORD_SIZE );
}

void GVideoPlaybackStream::_recvVideo( const GRTPHeader& header, uint64_t timestamp, const char* payload, int length )
{
    GLOGIF( 'V', u"Received frame video packet (", length, u" bytes)" );
    if( length < FORMAT_WORD_SIZE || !isVideoEdge( GReadU32( payload ) ) )
    {
        GLOG( u"WARNING Malformed RTP VIDEO DATA packet, ignoring." );
        return;
    }
    if( isLate( header.sequence, _lastVideoSequence ) ) return;
    const uint16_t expected = static_cast<uint16_t>( _lastVideoSequence + 1 );
    if( header.sequence != expected )
        GLOG( u"WARNING Expecting video packet #", expected, u" but actually received #", header.sequence );
    _lastVideoSequence = header.sequence;
    const uint32_t edge = GReadU32( payload );
    _resetVideo( edge, edge );
    if( length == FORMAT_WORD_SIZE ) return;
    if( !_videoDecoder )
    {
        GLOG( u"WARNING Received VIDEO DATA packet before video decoder initialized (maybe we missed the headers?), "
              u"ignoring." );
        return;
    }
    GImageFormat format;
    _budget.charge( edge / 16 * ( edge / 16 ) * GMediaBudget::MACRO_BLOCK );
    const bool decoded =
        _videoDecoder->decode( payload + FORMAT_WORD_SIZE, length - FORMAT_WORD_SIZE, format, _decodedVideo );
    _hasFrame = _hasFrame || decoded;
    if( !decoded ) GLOG( u"WARNING Received invalid video frame packet, ignoring." );
    if( !_videoRenderer ) GLOG( u"WARNING Received VIDEO packet before video renderer created" );
    // While this device shares its own screen it shows no video, which saves the processor for the screen.
    if( !decoded || !_hasFrame || !_videoRenderer || _instance->test( u"GScreenService_sendStreamActive" ) ) return;
    if( _isTalk( ) )
    {
        _show( header.timestamp, format );
        return;
    }
    _videoRenderer->queueVideo( timestamp, format, _decodedVideo );
    _instance->set( _videoLengthName, _videoRenderer->getVideoBufferedLength( ) / 1000 );
}

// Sound that runs is the clock of the pictures.
void GVideoPlaybackStream::_show( uint32_t stamp, const GImageFormat& format )
{
    const uint64_t now = GTimeGetTime( );
    uint64_t time = 0;
    const bool runs = _talk.playout && _talk.playout->getHeardTime( stamp, time );
    int64_t wait = runs ? static_cast<int64_t>( time - now ) : 0;
    if( wait > UNRELATED_WAIT ) wait = 0;
    if( _pictures.isFull( ) ) _showDue( UINT64_MAX );
    _pictures.put( now + static_cast<uint64_t>( std::clamp<int64_t>( wait, 0, LONGEST_WAIT ) ), format, _decodedVideo );
    _showDue( now );
}

// Those due by then.
void GVideoPlaybackStream::_showDue( uint64_t time )
{
    while( !_pictures.isEmpty( ) && _pictures.getFront( ).time <= time )
    {
        const GPictureQueue::Picture& picture = _pictures.getFront( );
        GImageTools_instanceWrite( _instance, _imageName, picture.format, picture.pixels );
        _pictures.pop( );
    }
    const uint64_t now = GTimeGetTime( );
    const int64_t ahead = _pictures.isEmpty( ) ? 0 : static_cast<int64_t>( _pictures.getBack( ).time - now );
    _instance->set( _videoLengthName, std::max<int64_t>( ahead, 0 ) / 1000 );
}

// The codec's set-up is never sent: both ends compute it from the edge.
void GVideoPlaybackStream::_resetVideo( uint32_t width, uint32_t height )
{
    if( width == _videoWidth && height == _videoHeight ) return;
    _budget.charge( GMediaBudget::NEW_PICTURE + width / 16 * ( height / 16 ) * GMediaBudget::MACRO_BLOCK );
    GString codebook;
    GTheoraEncoder_generateCodebook( static_cast<int>( width ), static_cast<int>( height ), codebook );
    delete _videoDecoder;
    _videoDecoder = nullptr;
    _videoWidth = _videoHeight = 0;
    _hasFrame = false;
    _videoDecoder = GSAFENEW( GTheoraDecoder, ( codebook.data( ), static_cast<int>( codebook.size( ) ) ) );
    if( !_videoDecoder->isValid( ) )
    {
        GLOG( u"WARNING Received invalid video header packet; ignoring." );
        delete _videoDecoder;
        _videoDecoder = nullptr;
        return;
    }
    _videoWidth = width;
    _videoHeight = height;
}

void GVideoPlaybackStream::_resetAudio( uint32_t rate )
{
    _lastAudioTime = 0;
    if( rate == _audioRate ) return;
    _budget.charge( GMediaBudget::NEW_TALK );
    delete _audioDecoder;
    _audioDecoder = nullptr;
    _audioRate = 0;
    _retireTalk( );
    if( rate )
        _openAudio( rate );
    else
        _stopListeningTo( );
    _retireRenderer( );
    _makeRenderer( );
    _instance->clear( _videoLengthName );
    _instance->clear( _audioLengthName );
}

void GVideoPlaybackStream::_openAudio( uint32_t rate )
{
    GString codebook;
    GSpeexEncoder_generateCodebook( codebook, static_cast<int>( rate ) );
    GSpeexDecoder* decoder = GSAFENEW( GSpeexDecoder, ( codebook.data( ), static_cast<int>( codebook.size( ) ) ) );
    if( _isRobust( ) )
        _talk = { std::unique_ptr<GSpeexDecoder>( decoder ),
                  std::unique_ptr<GVoicePlayout>(
                      GSAFENEW( GVoicePlayout, ( *decoder, _jitter, static_cast<int>( rate ) ) ) ) };
    else
        _audioDecoder = decoder;
    _audioRate = rate;
    _startListeningTo( );
    _lastAudioTime = GTimeGetTime( );
}

// What it has still to say is heard.
void GVideoPlaybackStream::_retireTalk( )
{
    if( !_talk.playout ) return;
    _talk.playout->finish( );
    if( !_talk.playout->done( ) ) _sunsetTalks.push_back( std::move( _talk ) );
    if( _sunsetTalks.size( ) > MOST_SUNSETS ) _sunsetTalks.pop_front( );
    _talk.playout.reset( );
    _talk.decoder.reset( );
}

void GVideoPlaybackStream::_retireRenderer( )
{
    if( !_videoRenderer ) return;
    if( _videoRenderer->done( ) )
    {
        delete _videoRenderer;
        GLOGIF( 'v', u"Discarded renderer" );
    }
    else
    {
        GLOGIF( 'v', u"Adding video renderer to sunset list due to ", _videoRenderer->getAudioBufferedLength( ) / 1000,
                u"ms of buffered audio remaining..." );
        _videoRenderer->finish( );
        _sunsetList.push_back( _videoRenderer );
        if( _sunsetList.size( ) > MOST_SUNSETS )
        {
            delete _sunsetList.front( );
            _sunsetList.pop_front( );
        }
    }
    _videoRenderer = nullptr;
}

void GVideoPlaybackStream::_makeRenderer( )
{
    _videoRenderer = GSAFENEW( GVideoRenderer, ( _instance, _imageName, _instance->calc( u"Prebuffer_MS" ) * 1000 ) );
}

void GVideoPlaybackStream::_startListeningTo( )
{
    _instance->insert( u"Listening_To_List", _buddyGUID );
    GLOGIF( 'v', u"Added '", _buddyGUID, u"' to 'Listening_To_List'" );
    GHTTPHeaders command( u"LISTENINGTO" );
    command.set( u"User-GUID", _buddyGUID );
    _instance->enqueue( u"GClient_commandQueue", command );
}

void GVideoPlaybackStream::_stopListeningTo( )
{
    _instance->remove( u"Listening_To_List", _buddyGUID );
    GLOGIF( 'v', u"Removed '", _buddyGUID, u"' from 'Listening_To_List'" );
}

void GVideoPlaybackStream::update( )
{
    const GObjectLock scope( *this );
    _nextUpdate = UINT64_MAX;
    const int64_t silence = _lastAudioTime ? static_cast<int64_t>( GTimeGetTime( ) - _lastAudioTime ) : 0;
    if( silence > INACTIVITY_TIMEOUT )
    {
        // A talk spurt ends by a second of silence, not by a message.
        GLOG( u"WARNING Inactivity timeout (", silence / 1000, u"ms), resetting audio." );
        _resetAudio( 0 );
        // A sender may count anew at its next spurt.
        if( _isRobust( ) ) _lastAudioSequence = 0;
    }
    if( _isTalk( ) )
        _updateTalk( );
    else if( _videoRenderer )
        _writeBufferLengths( );
    _dropSunset( );
    if( !_isTalk( ) || !_sunsetList.empty( ) ) _wakeAfter( UPDATE_PERIOD );
}

void GVideoPlaybackStream::_dropSunset( )
{
    for( auto it = _sunsetList.begin( ); it != _sunsetList.end( ); )
        if( ( *it )->done( ) )
        {
            GLOGIF( 'v', u"Self destructing sunset renderer" );
            delete *it;
            it = _sunsetList.erase( it );
        }
        else
            ++it;
}

void GVideoPlaybackStream::_wakeAfter( int64_t wait )
{
    if( wait >= 0 ) _nextUpdate = std::min( _nextUpdate, GTimeGetTime( ) + static_cast<uint64_t>( wait ) );
}

void GVideoPlaybackStream::_updateTalk( )
{
    const uint64_t now = GTimeGetTime( );
    if( !_pictures.isEmpty( ) ) _showDue( now );
    if( !_pictures.isEmpty( ) ) _nextUpdate = _pictures.getFront( ).time;
    if( _talk.playout )
    {
        _wakeAfter( _talk.playout->update( ) );
        _publishTalk( now );
    }
    if( _lastAudioTime ) _wakeAfter( INACTIVITY_TIMEOUT + 1000 - static_cast<int64_t>( now - _lastAudioTime ) );
    for( auto it = _sunsetTalks.begin( ); it != _sunsetTalks.end( ); )
        if( it->playout->done( ) )
            it = _sunsetTalks.erase( it );
        else
            _wakeAfter( ( it++ )->playout->update( ) );
}

// Read by people, so ten times a second will do.
void GVideoPlaybackStream::_publishTalk( uint64_t now )
{
    if( now - _publishTime < static_cast<uint64_t>( UPDATE_PERIOD ) ) return;
    _publishTime = now;
    _instance->set( _prebufferName, _talk.playout->getTarget( ) / 1000 );
    _instance->set( _audioLengthName, _talk.playout->getBufferedLength( ) / 1000 );
}

void GVideoPlaybackStream::_writeBufferLengths( )
{
    _instance->set( _videoLengthName, _videoRenderer->getVideoBufferedLength( ) / 1000 );
    _instance->set( _audioLengthName, _videoRenderer->getAudioBufferedLength( ) / 1000 );
}
