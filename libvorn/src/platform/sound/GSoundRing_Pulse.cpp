// The playback ring: the stream's write callback is the device and pulls from the ring. The write cursor is what was pulled, the play
// cursor is that minus what still waits in the server; between them lies what may be read at any moment.
#include "platform/GSoundRing.h"

#include "base/GPortable.h"
#include "platform/sound/GSoundServer_Pulse.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace
{
constexpr int BYTES_PER_SAMPLE = 2;
constexpr pa_usec_t START_TIME = 1000000;
} // namespace

struct GSoundRingRecord
{
    std::vector<char> bytes;
    pa_stream* stream = nullptr;
    int64_t pulled = 0; // Bytes that the device took since the start.
    int64_t played = 0; // Bytes that were heard; only rises.
    int frequency = 0;
    int latency = GSOUNDRING_LATENCY;
    bool clears = false; // What was taken becomes silence.
};

namespace
{
bool isUsable( const GSoundRingRecord& ring )
{
    return PA_STREAM_IS_GOOD( pa_stream_get_state( ring.stream ) );
}

void onWrite( pa_stream* stream, size_t wanted, void* argument )
{
    GSoundRingRecord& ring = *static_cast<GSoundRingRecord*>( argument );
    const int64_t size = static_cast<int64_t>( ring.bytes.size( ) );
    while( wanted > 0 )
    {
        void* to = nullptr;
        size_t room = wanted;
        if( pa_stream_begin_write( stream, &to, &room ) < 0 || !to || !room ) return;
        const int64_t offset = ring.pulled % size;
        const size_t count = std::min( { room, wanted, static_cast<size_t>( size - offset ) } );
        std::memcpy( to, ring.bytes.data( ) + offset, count );
        if( ring.clears ) std::memset( ring.bytes.data( ) + offset, 0, count );
        if( pa_stream_write( stream, to, count, nullptr, 0, PA_SEEK_RELATIVE ) < 0 ) return;
        ring.pulled += static_cast<int64_t>( count );
        wanted -= count;
    }
}

void onStreamState( pa_stream*, void* )
{
    GSoundServer::get( ).wake( );
}

bool isStreamSettled( void* stream )
{
    return pa_stream_get_state( static_cast<pa_stream*>( stream ) ) != PA_STREAM_CREATING;
}

// Under the lock; false leaves a stream that never plays.
bool connectStream( GSoundRingRecord& ring )
{
    GSoundServer& server = GSoundServer::get( );
    pa_buffer_attr wish;
    std::memset( &wish, 0xFF, sizeof( wish ) );
    const pa_sample_spec* spec = pa_stream_get_sample_spec( ring.stream );
    wish.tlength = static_cast<uint32_t>( pa_usec_to_bytes( static_cast<pa_usec_t>( ring.latency ), spec ) );
    wish.prebuf = 0;
    const int flags = PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_ADJUST_LATENCY |
                      PA_STREAM_START_CORKED | ( server.waveMuted ? PA_STREAM_START_MUTED : 0 );
    const pa_cvolume volume = server.getWaveVolume( 1 );
    pa_stream_set_state_callback( ring.stream, onStreamState, nullptr );
    if( pa_stream_connect_playback( ring.stream, nullptr, &wish, static_cast<pa_stream_flags_t>( flags ), &volume,
                                    nullptr ) < 0 )
        return false;
    server.waitUntil( isStreamSettled, ring.stream, START_TIME );
    return pa_stream_get_state( ring.stream ) == PA_STREAM_READY;
}

void release( GSoundRingRecord& ring )
{
    GSoundServer::get( ).removeStream( ring.stream );
    GSoundServer::release( ring.stream );
}

// False when the ring is lost.
bool updatePlayed( GSoundRingRecord& ring )
{
    if( !isUsable( ring ) ) return false;
    pa_usec_t latency = 0;
    int negative = 0;
    // Without a first answer of the server nothing was heard yet.
    if( pa_stream_get_latency( ring.stream, &latency, &negative ) >= 0 )
    {
        const int64_t waiting =
            negative ? 0 : static_cast<int64_t>( latency ) * ring.frequency / 1000000 * BYTES_PER_SAMPLE;
        ring.played = std::max( ring.played, std::max( int64_t( 0 ), ring.pulled - waiting ) );
    }
    // The clock of the stream runs on when the sink stands still; never beyond what was given.
    ring.played = std::min( ring.played, ring.pulled );
    return true;
}

// From `at` on, and on at the begin. False when the ring is lost.
bool copyIn( GSoundRingRecord& ring, size_t at, const char* data, size_t left )
{
    const size_t size = ring.bytes.size( );
    GPRECONDITION( at < size && left <= size );
    while( left > 0 )
    {
        const size_t count = std::min( left, size - at );
        std::memcpy( ring.bytes.data( ) + at, data, count );
        data += count;
        left -= count;
        at = 0;
    }
    return isUsable( ring );
}

void cork( GSoundRing ring, bool hold )
{
    GPRECONDITION( ring );
    const GSoundServer::Lock lock;
    if( isUsable( *ring ) ) GSoundServer::get( ).finish( pa_stream_cork( ring->stream, hold, nullptr, nullptr ) );
}
} // namespace

GSoundRing GSoundRingOpen( int frequency, int bytes, int latency )
{
    GPRECONDITION( frequency > 0 && bytes > 0 && bytes % BYTES_PER_SAMPLE == 0 && latency > 0 );
    const GSoundServer::Lock lock;
    GSoundServer& server = GSoundServer::get( );
    if( !server.connect( ) ) return nullptr;
    const pa_sample_spec spec{ PA_SAMPLE_S16LE, static_cast<uint32_t>( frequency ), 1 };
    pa_stream* stream = pa_stream_new( server.context( ), "Voice", &spec, nullptr );
    if( !stream ) return nullptr;
    GSoundRingRecord* ring = new GSoundRingRecord;
    ring->bytes.assign( static_cast<size_t>( bytes ), 0 );
    ring->stream = stream;
    ring->frequency = frequency;
    ring->latency = latency;
    server.addStream( stream );
    if( connectStream( *ring ) ) return ring;
    release( *ring );
    delete ring;
    return nullptr;
}

void GSoundRingClose( GSoundRing ring )
{
    GPRECONDITION( ring );
    {
        const GSoundServer::Lock lock;
        release( *ring );
    }
    delete ring;
}

void GSoundRingPlay( GSoundRing ring )
{
    GPRECONDITION( ring );
    {
        const GSoundServer::Lock lock;
        if( !isUsable( *ring ) ) return;
        pa_stream_set_write_callback( ring->stream, onWrite, ring );
        const size_t room = pa_stream_writable_size( ring->stream );
        if( room != static_cast<size_t>( -1 ) && room > 0 ) onWrite( ring->stream, room, ring );
    }
    cork( ring, false );
}

void GSoundRingStop( GSoundRing ring )
{
    cork( ring, true );
}

bool GSoundRingGetCursors( GSoundRing ring, int& play, int& write )
{
    GPRECONDITION( ring );
    const GSoundServer::Lock lock;
    if( !updatePlayed( *ring ) ) return false;
    const int64_t size = static_cast<int64_t>( ring->bytes.size( ) );
    play = static_cast<int>( ring->played % size );
    write = static_cast<int>( ring->pulled % size );
    return true;
}

void GSoundRingClearTaken( GSoundRing ring )
{
    GPRECONDITION( ring );
    const GSoundServer::Lock lock;
    ring->clears = true;
}

bool GSoundRingGetPositions( GSoundRing ring, int64_t& heard, int64_t& taken )
{
    GPRECONDITION( ring );
    const GSoundServer::Lock lock;
    if( !updatePlayed( *ring ) ) return false;
    heard = ring->played / BYTES_PER_SAMPLE;
    taken = ring->pulled / BYTES_PER_SAMPLE;
    return true;
}

bool GSoundRingWrite( GSoundRing ring, int offset, const char* data, int length )
{
    GPRECONDITION( ring && data && length >= 0 && offset >= 0 );
    const GSoundServer::Lock lock;
    return copyIn( *ring, static_cast<size_t>( offset ), data, static_cast<size_t>( length ) );
}

bool GSoundRingWriteAt( GSoundRing ring, int64_t position, const int16_t* samples, int count )
{
    GPRECONDITION( ring && samples && count >= 0 && position >= 0 );
    const GSoundServer::Lock lock;
    const int64_t passed = std::clamp<int64_t>( ring->pulled / BYTES_PER_SAMPLE - position, 0, count );
    const int64_t size = static_cast<int64_t>( ring->bytes.size( ) );
    GPRECONDITION( ( position + count ) * BYTES_PER_SAMPLE <= ring->pulled + size );
    return copyIn( *ring, static_cast<size_t>( ( position + passed ) * BYTES_PER_SAMPLE % size ),
                   reinterpret_cast<const char*>( samples + passed ),
                   static_cast<size_t>( ( count - passed ) * BYTES_PER_SAMPLE ) );
}

bool GSoundRingIsAlive( GSoundRing ring )
{
    if( !ring ) return false;
    const GSoundServer::Lock lock;
    return isUsable( *ring );
}
