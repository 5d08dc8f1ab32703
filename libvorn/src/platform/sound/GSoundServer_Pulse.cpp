#include "platform/sound/GSoundServer_Pulse.h"

namespace
{
constexpr pa_usec_t CONNECT_TIME = 2000000;
constexpr pa_usec_t OPERATION_TIME = 1000000;
constexpr pa_usec_t RETRY_TIME = 1000000;

void onContextState( pa_context*, void* server )
{
    static_cast<GSoundServer*>( server )->wake( );
}

void onTime( pa_mainloop_api*, pa_time_event*, const struct timeval*, void* expired )
{
    *static_cast<bool*>( expired ) = true;
    GSoundServer::get( ).wake( );
}

bool isSettled( void* context )
{
    const pa_context_state_t state = pa_context_get_state( static_cast<pa_context*>( context ) );
    return state == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD( state );
}

bool isDone( void* operation )
{
    return pa_operation_get_state( static_cast<pa_operation*>( operation ) ) != PA_OPERATION_RUNNING;
}

void onOperation( pa_operation*, void* server )
{
    static_cast<GSoundServer*>( server )->wake( );
}
} // namespace

// Never destroyed: its loop runs until the process ends.
GSoundServer& GSoundServer::get( )
{
    static GSoundServer* const server = new GSoundServer;
    return *server;
}

GSoundServer::GSoundServer( ) : _loop( pa_threaded_mainloop_new( ) )
{
    pa_threaded_mainloop_start( _loop );
}

bool GSoundServer::_isReady( ) const
{
    return _context && pa_context_get_state( _context ) == PA_CONTEXT_READY;
}

bool GSoundServer::connect( )
{
    if( _isReady( ) ) return true;
    if( _lastFailure && pa_rtclock_now( ) - _lastFailure < RETRY_TIME ) return false;
    if( _context )
    {
        pa_context_set_state_callback( _context, nullptr, nullptr );
        pa_context_disconnect( _context );
        pa_context_unref( _context );
    }
    _context = pa_context_new( pa_threaded_mainloop_get_api( _loop ), "Velmora" );
    pa_context_set_state_callback( _context, onContextState, this );
    const bool asked = pa_context_connect( _context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr ) == 0;
    if( asked ) waitUntil( isSettled, _context, CONNECT_TIME );
    _lastFailure = _isReady( ) ? 0 : pa_rtclock_now( );
    return _isReady( );
}

bool GSoundServer::waitUntil( bool ( *ready )( void* ), void* argument, pa_usec_t duration )
{
    bool expired = false;
    pa_mainloop_api* api = pa_threaded_mainloop_get_api( _loop );
    pa_time_event* timer = pa_context_rttime_new( _context, pa_rtclock_now( ) + duration, onTime, &expired );
    while( !ready( argument ) && !expired && PA_CONTEXT_IS_GOOD( pa_context_get_state( _context ) ) )
        pa_threaded_mainloop_wait( _loop );
    if( timer ) api->time_free( timer );
    return ready( argument );
}

bool GSoundServer::finish( pa_operation* operation )
{
    if( !operation ) return false;
    pa_operation_set_state_callback( operation, onOperation, this );
    waitUntil( isDone, operation, OPERATION_TIME );
    const bool done = pa_operation_get_state( operation ) == PA_OPERATION_DONE;
    if( !done ) pa_operation_cancel( operation );
    pa_operation_unref( operation );
    return done;
}

pa_cvolume GSoundServer::getWaveVolume( int channels ) const
{
    pa_cvolume volume;
    pa_cvolume_set( &volume, static_cast<unsigned>( channels ),
                    static_cast<pa_volume_t>( waveVolume * PA_VOLUME_NORM ) );
    return volume;
}

bool GSoundServer::applyWaveLine( )
{
    // Not waited for: while the lock is given away in a wait, streams come and go.
    bool good = true;
    const auto start = [&good]( pa_operation* operation )
    {
        good &= operation != nullptr;
        if( operation ) pa_operation_unref( operation );
    };
    for( pa_stream* stream : _streams )
    {
        if( pa_stream_get_state( stream ) != PA_STREAM_READY ) continue;
        const uint32_t index = pa_stream_get_index( stream );
        const pa_cvolume volume = getWaveVolume( pa_stream_get_sample_spec( stream )->channels );
        start( pa_context_set_sink_input_volume( _context, index, &volume, nullptr, nullptr ) );
        start( pa_context_set_sink_input_mute( _context, index, waveMuted, nullptr, nullptr ) );
    }
    return good;
}
