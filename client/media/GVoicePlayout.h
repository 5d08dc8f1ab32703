// Plays the voice of one talk at the delay that its network needs. A packet is decoded as it arrives and goes into the sound ring at the
// place where it is due; what has to wait for an earlier one waits undecoded. A packet that does not come in time is concealed, one that
// comes out of order within reach is played in order. From arrival to the ear, with what waits in the ring and in the device, the sound
// takes the time of the measured jitter, 60 to 500 ms: changes of that and the drift between two clocks are followed by leaving out or
// repeating samples unheard. Nobody feeds the ring: what the device took becomes silence, and `update` tells when it wants to run.
//
// Without a sound server, or when one goes, nothing is heard; it is tried again every second, and playing goes on. One thread. Times are
// microseconds of GTimeGetTime. Nothing is allocated for a packet once the buffers have grown.
#pragma once

#include "client/media/GJitterEstimate.h"
#include "client/media/GPacketWindow.h"
#include "client/media/IGVoiceDecoder.h"
#include "platform/GSoundRing.h"
#include "runtime/GObject.h"

class GVoicePlayout : public GHeapObject
{
public:
    static constexpr int64_t LEAST_DELAY = 60000;
    static constexpr int64_t GREATEST_DELAY = 500000;
    // What the sound server is asked to hold.
    static constexpr int DEVICE_LATENCY = 25000;
    // What happened since the begin, in packets where nothing else is told.
    struct Statistics
    {
        int64_t played = 0;
        int64_t concealed = 0; // Did not come in time.
        int64_t late = 0;      // Came after that.
        int64_t skipped = 0;   // Samples that came too late to be of use.
        int64_t dry = 0;       // Times that the ring ran dry.
        int64_t shortened = 0; // Samples; below 0 for lengthened.
    };

    // `decoder` and `estimate` are borrowed; the estimate outlives the talk, since the network does.
    GVoicePlayout( IGVoiceDecoder& decoder, GJitterEstimate& estimate, int frequency );
    ~GVoicePlayout( ) override;

    // In per cent, for what is decoded from now on.
    void setGain( int percent ) { _gain = percent; }
    // True when a packet of that number could still be played, or begins a count anew (`stamp`: hundredths of a second).
    bool isWelcome( uint16_t sequence, uint32_t stamp ) const;
    // One packet, of any number.
    void put( uint16_t sequence, uint32_t stamp, const char* frame, int length );
    // Does what is due and tells how long it can wait, or -1 when only a packet can bring more.
    int64_t update( );
    // The talk has ended: what is held is played, and nothing concealed after it.
    void finish( );
    // True when all was heard.
    bool done( );

    // The delay that is aimed at.
    int64_t getTarget( ) const;
    // From now to the end of what is there to be heard.
    int64_t getBufferedLength( );
    // When something that was captured at `stamp` milliseconds of the sender's clock is heard; false when no sound runs.
    bool getHeardTime( uint32_t stamp, uint64_t& time );
    const Statistics& getStatistics( ) const { return _statistics; }

private:
    bool _openRing( );
    void _forgetRing( );
    bool _readRing( );
    bool _isReady( );
    bool _isCountedAnew( int ahead, uint32_t stamp ) const;
    void _begin( uint16_t sequence, uint32_t stamp );
    int64_t _pauseBefore( int ahead, uint32_t stamp ) const;
    void _keep( int ahead, uint16_t sequence, uint32_t stamp, const char* frame, int length );
    void _takeInOrder( );
    void _guess( int count );
    void _decode( const GPacketWindow::Packet& packet );
    void _loseNext( );
    void _bridge( );
    void _flush( );
    int64_t _place( int count );
    int _useless( int64_t position, int count ) const;
    int _correction( int64_t position, int64_t media );
    bool _isQuiet( const int16_t* samples, int count );
    void _write( int64_t position, const int16_t* samples, int count );
    int64_t _leftBefore( int64_t position ) const;
    int64_t _placeOf( int64_t media ) const;
    int64_t _delayAt( int64_t position, int64_t media ) const;
    int64_t _greatestDelay( ) const;
    int64_t _toTime( int64_t samples ) const { return samples * 1000000 / _frequency; }
    int64_t _toSamples( int64_t time ) const { return time * _frequency / 1000000; }

    IGVoiceDecoder& _decoder;
    GJitterEstimate& _estimate;
    GPacketWindow _window;
    Statistics _statistics;
    const int _frequency;
    int _gain = 100;
    GSoundRing _ring = nullptr;
    uint64_t _retryTime = 0; // When the sound server is asked again; 0 for at once.
    uint64_t _now = 0;
    int64_t _heard = 0; // The ring's two positions, as read at _now.
    int64_t _taken = 0;
    int64_t _reserve; // What the device and its pulls take of the delay.
    bool _hasBegun = false;
    bool _warned = false; // That nothing can be heard.
    uint64_t _finishTime = 0;
    bool _ready = false; // The device runs, so that its positions have times.
    uint64_t _readyBy = 0;
    bool _dry = true;     // The ring has nothing more; the next sound may stand anywhere.
    int64_t _written = 0; // Position of the ring after the last sound.
    int64_t _media = 0;   // Where in the talk the next packet begins, in samples.
    int _length = 0;      // Samples of a packet.
    int _bridged = 0;     // Samples of sound that stood in for packets that may still come.
    int64_t _delay = 0;   // Smoothed, from arrival by the shortest way to the ear, of what is written.
    bool _correcting = false;
    int _floor = 0;          // The peak of what counts as silence here.
    uint32_t _lastStamp = 0; // Of the newest packet.
    uint32_t _syncStamp = 0; // A stamp and the place in the talk where it was captured.
    int64_t _syncMedia = 0;
    GString _pending; // Decoded, not yet in the ring; ends at _media.
    GString _decoded;
    GString _stretched;
};
