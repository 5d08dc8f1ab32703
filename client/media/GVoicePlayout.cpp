#include "client/media/GVoicePlayout.h"

#include "client/media/GEchoReference.h"
#include "client/media/GVoiceGain.h"
#include "client/media/GVoiceStretch.h"
#include "platform/GTime.h"

#include <algorithm>

namespace
{
// How long before the device takes the place of a missing packet it is given up: its steps and a late wake-up lie within.
constexpr int64_t DEADLINE = 15000;
// Between reading the ring's positions and writing.
constexpr int64_t GUARD = 5000;
// How long a dry ring goes on with what may have been said.
constexpr int64_t BRIDGE = 40000;
constexpr int64_t RETRY = 1000000;
// A server that takes its time to fail is asked less often: the other talks wait meanwhile.
constexpr int64_t SLOW_RETRY = 10000000;
constexpr int64_t SLOW = 100000;
constexpr int64_t DEVICE_POLL = 5000;
constexpr int64_t DEVICE_START = 500000;
// A stamp counts hundredths of a second; what it tells beyond the count of packets is a pause of the sender, unless it is a few of them.
constexpr int64_t STAMP_UNIT = 10000;
constexpr int64_t LEAST_PAUSE = 60000;
constexpr int64_t GREATEST_PAUSE = 2000000;
// The correction begins when the delay is wrong by the one and ends at the other.
constexpr int64_t CORRECTION_BEGIN = 10000;
constexpr int64_t CORRECTION_END = 2000;
constexpr int SMOOTHING = 16;
constexpr int RESERVE_SMOOTHING = 32;
// Nothing above is taken for silence, and everything below is.
constexpr int GREATEST_FLOOR = 1000;
constexpr int LEAST_FLOOR = 100;
constexpr int FLOOR_RISE = 1024; // A packet raises it by that part.
constexpr int FADE_SHARE = 400;  // Of a second: 2.5 ms.
constexpr int FULL = 256;
constexpr int64_t LAST_WAIT = 2000000;
constexpr int BYTES = 2;

int samplesIn( const GString& bytes )
{
    return static_cast<int>( bytes.size( ) ) / BYTES;
}
int16_t* samplesOf( GString& bytes )
{
    return reinterpret_cast<int16_t*>( bytes.data( ) );
}
int32_t stampsBetween( uint32_t from, uint32_t to )
{
    return static_cast<int32_t>( to - from );
}
} // namespace

GVoicePlayout::GVoicePlayout( IGVoiceDecoder& decoder, GJitterEstimate& estimate, int frequency )
    : _decoder( decoder ), _estimate( estimate ), _frequency( frequency ), _reserve( DEVICE_LATENCY + DEADLINE + GUARD )
{
    GPRECONDITION( frequency > 0 );
}

GVoicePlayout::~GVoicePlayout( )
{
    GLOGIF( 'v', u"Voice: ", _statistics.played, u" packets played, ", _statistics.concealed, u" concealed, ",
            _statistics.late, u" late, dry ", _statistics.dry, u" times, ", _statistics.skipped,
            u" samples skipped, shortened by ", _statistics.shortened, u", delay ", getTarget( ) / 1000, u"ms" );
    if( _ring ) GSoundRingClose( _ring );
}

// ---- The ring.

bool GVoicePlayout::_openRing( )
{
    const int64_t wait = static_cast<int64_t>( _retryTime - _now );
    if( _retryTime && wait > 0 && wait <= SLOW_RETRY ) return false;
    _ring = GSoundRingOpen( _frequency, _frequency * BYTES, DEVICE_LATENCY );
    const uint64_t begin = _now;
    _now = GTimeGetTime( );
    if( !_ring )
    {
        _retryTime = _now + ( static_cast<int64_t>( _now - begin ) > SLOW ? SLOW_RETRY : RETRY );
        if( !_warned ) GLOG( u"WARNING Cannot play audio, ignoring." );
        _warned = true;
        return false;
    }
    GSoundRingClearTaken( _ring );
    GSoundRingPlay( _ring );
    _warned = _ready = false;
    _heard = _taken = _written = 0;
    return true;
}

// What the talk had ready goes with it.
void GVoicePlayout::_forgetRing( )
{
    GLOG( u"WARNING Sound output lost, trying again." );
    GSoundRingClose( _ring );
    _ring = nullptr;
    _retryTime = _now + RETRY;
    _warned = true;
    _hasBegun = false;
    _pending.clear( );
    _window.restart( _window.getNext( ) );
}

bool GVoicePlayout::_readRing( )
{
    if( !_ring ) return false;
    if( !GSoundRingGetPositions( _ring, _heard, _taken ) )
    {
        _forgetRing( );
        return false;
    }
    if( _heard > 0 ) _reserve += ( _toTime( _taken - _heard ) + DEADLINE + GUARD - _reserve ) / RESERVE_SMOOTHING;
    return true;
}

bool GVoicePlayout::_isReady( )
{
    if( !_ready ) _ready = _heard > 0 || _now > _readyBy;
    return _ready;
}

// ---- Delay.

int64_t GVoicePlayout::getTarget( ) const
{
    return std::max( std::clamp( _estimate.getJitter( ) + _reserve, LEAST_DELAY, GREATEST_DELAY ), _reserve );
}

int64_t GVoicePlayout::_greatestDelay( ) const
{
    return std::max( GREATEST_DELAY, _reserve ) + GUARD;
}

// The position of the ring where that place of the talk is due.
int64_t GVoicePlayout::_placeOf( int64_t media ) const
{
    const int64_t due = _estimate.getBase( ) + _toTime( media ) + getTarget( );
    return _heard + _toSamples( due - static_cast<int64_t>( _now ) );
}

// What that place of the talk takes from arrival to the ear when it stands there.
int64_t GVoicePlayout::_delayAt( int64_t position, int64_t media ) const
{
    return static_cast<int64_t>( _now ) + _toTime( position - _heard ) - _estimate.getBase( ) - _toTime( media );
}

int64_t GVoicePlayout::_leftBefore( int64_t position ) const
{
    return _toTime( position - _taken ) - DEADLINE;
}

// ---- Packets.

bool GVoicePlayout::_isCountedAnew( int ahead, uint32_t stamp ) const
{
    return ahead < 0 && stampsBetween( _lastStamp, stamp ) > 0;
}

bool GVoicePlayout::isWelcome( uint16_t sequence, uint32_t stamp ) const
{
    const int ahead = _window.getAhead( sequence );
    return !_hasBegun || ahead >= 0 || _isCountedAnew( ahead, stamp );
}

void GVoicePlayout::_begin( uint16_t sequence, uint32_t stamp )
{
    _hasBegun = true;
    _window.restart( sequence );
    _estimate.restart( );
    _lastStamp = _syncStamp = stamp;
    _syncMedia = _media;
    _readyBy = _now + DEVICE_START;
    _dry = true;
    _bridged = 0;
}

// Time that passed at the sender, before that packet, without sound.
int64_t GVoicePlayout::_pauseBefore( int ahead, uint32_t stamp ) const
{
    const int64_t counted = _toTime( _media + static_cast<int64_t>( ahead ) * _length - _syncMedia );
    const int64_t pause = stampsBetween( _syncStamp, stamp ) * STAMP_UNIT - counted;
    return pause > LEAST_PAUSE ? pause : 0;
}

void GVoicePlayout::put( uint16_t sequence, uint32_t stamp, const char* frame, int length )
{
    _now = GTimeGetTime( );
    if( !_readRing( ) && !_openRing( ) ) return;
    if( !_hasBegun || _isCountedAnew( _window.getAhead( sequence ), stamp ) ) _begin( sequence, stamp );
    const int ahead = _window.getAhead( sequence );
    if( _window.isKnown( sequence ) ) return;
    const int64_t pause = ahead >= 0 && _length ? _pauseBefore( ahead, stamp ) : 0;
    if( pause > GREATEST_PAUSE )
    {
        _begin( sequence, stamp );
        _keep( 0, sequence, stamp, frame, length );
        return;
    }
    if( pause )
    {
        _media += _toSamples( pause );
        _dry = true;
    }
    _keep( ahead, sequence, stamp, frame, length );
}

void GVoicePlayout::_keep( int ahead, uint16_t sequence, uint32_t stamp, const char* frame, int length )
{
    if( ahead == 0 || _length ) _estimate.add( _now, _toTime( _media + static_cast<int64_t>( ahead ) * _length ) );
    if( stampsBetween( _lastStamp, stamp ) > 0 ) _lastStamp = stamp;
    if( ahead >= GPacketWindow::SIZE )
    {
        // So many are lost that nothing need be concealed.
        _media += static_cast<int64_t>( ahead ) * _length;
        _window.restart( sequence );
        _dry = true;
    }
    if( _window.put( sequence, stamp, frame, length ) )
        _takeInOrder( );
    else
        ++_statistics.late;
}

void GVoicePlayout::_takeInOrder( )
{
    while( const GPacketWindow::Packet* packet = _window.getFront( ) )
    {
        _decode( *packet );
        _window.advance( );
        _flush( );
    }
}

// What may have been said: at most so many samples.
void GVoicePlayout::_guess( int count )
{
    _decoder.conceal( count, _decoded );
    _decoded.resize( std::min( _decoded.size( ), static_cast<size_t>( count ) * BYTES ) );
    GVoiceGain( samplesOf( _decoded ), samplesIn( _decoded ), _gain );
}

void GVoicePlayout::_decode( const GPacketWindow::Packet& packet )
{
    // An empty frame says nothing and takes no time.
    _decoded.clear( );
    const bool good = packet.frame.empty( ) ||
                      _decoder.decode( packet.frame.data( ), static_cast<int>( packet.frame.size( ) ), _decoded );
    if( good && !_decoded.empty( ) )
    {
        _length = samplesIn( _decoded );
        GVoiceGain( samplesOf( _decoded ), _length, _gain );
    }
    if( !good )
    {
        GLOG( u"WARNING Received invalid audio frame packet, ignoring." );
        _guess( _length );
    }
    ++( good ? _statistics.played : _statistics.concealed );
    if( packet.stamp != _syncStamp )
    {
        _syncStamp = packet.stamp;
        _syncMedia = _media;
    }
    _bridged = 0;
    _pending += _decoded;
    _media += samplesIn( _decoded );
}

// The turn of the next packet is over; others wait behind it.
void GVoicePlayout::_loseNext( )
{
    ++_statistics.concealed;
    _window.advance( );
    _media += _length;
    if( _dry ) return;
    if( _bridged >= _length )
    {
        _bridged -= _length;
        return;
    }
    _guess( _length );
    _pending += _decoded;
    _flush( );
}

// ---- Sound.

// Stands in for a packet that may only be late: sound that takes no time of the talk.
void GVoicePlayout::_bridge( )
{
    const int whole = static_cast<int>( _toSamples( BRIDGE ) );
    const int count = std::min( whole - _bridged, std::max( whole / 4, 1 ) );
    _guess( count );
    int16_t* const samples = samplesOf( _decoded );
    const int made = samplesIn( _decoded );
    GVoiceFade( samples, made, ( whole - _bridged ) * FULL / whole, ( whole - _bridged - made ) * FULL / whole );
    _write( _written, samples, made );
    _delay += _toTime( made );
    _bridged += std::max( made, 1 );
}

// Where the pending samples, that many, are to stand.
int64_t GVoicePlayout::_place( int count )
{
    if( !_dry && _written < _taken )
    {
        // The device was there first.
        ++_statistics.dry;
        _dry = true;
    }
    if( !_dry ) return _written;
    // The next talk may have the estimate already.
    if( _finishTime ) return std::max( _taken + _toSamples( GUARD ), _written );
    return std::max( { _placeOf( _media - count ), _taken + _toSamples( GUARD ), _written } );
}

// How many of the first samples come too late: after a hold-up that no buffer bridges all that is overdue, else what would wait too long.
int GVoicePlayout::_useless( int64_t position, int count ) const
{
    const int64_t overdue = _dry && !_finishTime && _estimate.isStalled( ) ? position - _placeOf( _media - count ) : 0;
    const int64_t beyond =
        std::max( position + count - _heard - _toSamples( _greatestDelay( ) ), position + count - _taken - _frequency );
    return static_cast<int>( std::clamp<int64_t>( std::max( overdue, beyond ), 0, count ) );
}

bool GVoicePlayout::_isQuiet( const int16_t* samples, int count )
{
    const int peak = GVoicePeak( samples, count );
    _floor = _floor ? std::min( peak, _floor + _floor / FLOOR_RISE + 1 ) : peak;
    return peak <= std::clamp( 2 * _floor, LEAST_FLOOR, GREATEST_FLOOR );
}

// How many samples too many lie before the ear.
int GVoicePlayout::_correction( int64_t position, int64_t media )
{
    const int64_t off = _delayAt( position, media ) - _delay;
    // So much at once is another base, not a drift.
    _delay += off > LEAST_PAUSE || off < -LEAST_PAUSE ? off : off / SMOOTHING;
    const int64_t error = _delay - getTarget( );
    const int64_t size = error < 0 ? -error : error;
    _correcting = size > ( _correcting ? CORRECTION_END : CORRECTION_BEGIN );
    return _correcting ? static_cast<int>( _toSamples( error ) ) : 0;
}

void GVoicePlayout::_flush( )
{
    const int pending = samplesIn( _pending );
    if( !pending ) return;
    if( !_isReady( ) )
    {
        // The newest sound is kept.
        const int64_t excess = pending - _toSamples( GREATEST_DELAY );
        if( excess > 0 ) _pending.erase( 0, static_cast<size_t>( excess ) * BYTES );
        return;
    }
    const int64_t position = _place( pending );
    const int useless = _useless( position, pending );
    const int count = pending - useless;
    _statistics.skipped += useless;
    int16_t* const samples = samplesOf( _pending ) + useless;
    const bool quiet = _isQuiet( samples, count );
    _stretched.clear( );
    if( _dry )
    {
        GVoiceFade( samples, std::min( count, _frequency / FADE_SHARE ), 0, FULL );
        GVoiceShorten( samples, count, 0, quiet, _stretched );
        _delay = _delayAt( position, _media - count );
    }
    else
    {
        _delay -= _toTime( useless );
        const int less = GVoiceShorten( samples, count, _correction( position, _media - count ), quiet, _stretched );
        _statistics.shortened += less;
        _delay -= _toTime( less );
    }
    _pending.clear( );
    if( count ) _dry = false;
    _write( position, samplesOf( _stretched ), samplesIn( _stretched ) );
}

void GVoicePlayout::_write( int64_t position, const int16_t* samples, int count )
{
    if( !count ) return;
    GSoundRingWriteAt( _ring, position, samples, count );
    GEchoReference_write( _now + static_cast<uint64_t>( _toTime( position - _heard ) ), _frequency, samples, count,
                          this );
    _written = position + count;
}

int64_t GVoicePlayout::update( )
{
    _now = GTimeGetTime( );
    if( !_readRing( ) ) return -1;
    if( !_isReady( ) ) return _pending.empty( ) ? -1 : DEVICE_POLL;
    _flush( );
    for( ;; )
    {
        if( _window.isEmpty( ) && _finishTime ) return std::max<int64_t>( _toTime( _written - _heard ), DEVICE_POLL );
        if( _window.isEmpty( ) && _dry ) return -1;
        const int64_t left = _leftBefore( _dry ? std::max( { _placeOf( _media ), _taken, _written } ) : _written );
        if( left > 0 ) return left;
        if( !_window.isEmpty( ) )
        {
            _loseNext( );
            _takeInOrder( );
        }
        else if( _bridged < _toSamples( BRIDGE ) )
            _bridge( );
        else
        {
            ++_statistics.dry;
            _dry = true;
            return -1;
        }
    }
}

void GVoicePlayout::finish( )
{
    _now = GTimeGetTime( );
    while( _readRing( ) && !_window.isEmpty( ) )
    {
        _loseNext( );
        _takeInOrder( );
    }
    _finishTime = GTimeGetTime( );
}

bool GVoicePlayout::done( )
{
    _now = GTimeGetTime( );
    if( !_readRing( ) ) return true;
    const bool waited = _finishTime && static_cast<int64_t>( _now - _finishTime ) > LAST_WAIT;
    return waited || ( _window.isEmpty( ) && _pending.empty( ) && _heard >= _written );
}

int64_t GVoicePlayout::getBufferedLength( )
{
    if( !_readRing( ) ) return 0;
    return _toTime( std::max<int64_t>( _written - _heard, 0 ) + samplesIn( _pending ) );
}

bool GVoicePlayout::getHeardTime( uint32_t stamp, uint64_t& time )
{
    if( !_ring || !_hasBegun || !_ready || _finishTime ) return false;
    // A stamp of sound is that of its buffer cut down to a hundredth; both are told modulo 32 bits.
    const int64_t later = static_cast<int64_t>( stampsBetween( _syncStamp * 10, stamp ) ) * 1000;
    time = static_cast<uint64_t>( _estimate.getBase( ) + _toTime( _syncMedia ) + later + _delay );
    return true;
}
