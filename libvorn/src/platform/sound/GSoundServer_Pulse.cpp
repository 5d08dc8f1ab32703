#include "platform/sound/GSoundServer_Pulse.h"

#include <cmath>

namespace
{
constexpr pa_usec_t CONNECT_TIME = 2000000;
constexpr pa_usec_t OPERATION_TIME = 1000000;
constexpr pa_usec_t RETRY_TIME = 1000000;

void onContextState( pa_context* context, void* argument )
{
    GSoundServer* server = static_cast<GSoundServer*>( argument );
    if( !PA_CONTEXT_IS_GOOD( pa_context_get_state( context ) ) ) server->tellEnd( );
    server->wake( );
}

void onSources( pa_context*, pa_subscription_event_type_t event, uint32_t, void* server )
{
    // A source that only changes, as in volume, is the same device.
    if( ( event & PA_SUBSCRIPTION_EVENT_TYPE_MASK ) != PA_SUBSCRIPTION_EVENT_CHANGE )
        static_cast<GSoundServer*>( server )->tellSources( );
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

// A stream that is still on its way to the server can be ended only when it has arrived there.
void onArrival( pa_stream* stream, void* )
{
    const pa_stream_state_t state = pa_stream_get_state( stream );
    if( state == PA_STREAM_CREATING ) return;
    pa_stream_set_state_callback( stream, nullptr, nullptr );
    if( state == PA_STREAM_READY ) pa_stream_disconnect( stream );
    pa_stream_unref( stream );
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
    _wasReady = _isReady( );
    _lastFailure = _wasReady ? 0 : pa_rtclock_now( );
    _subscribe( );
    return _isReady( );
}

// A connection tells of sources only while somebody wants to know.
void GSoundServer::_subscribe( )
{
    if( !_isReady( ) ) return;
    pa_context_set_subscribe_callback( _context, _sourcesChanged ? onSources : nullptr, this );
    const pa_subscription_mask_t what = _sourcesChanged ? PA_SUBSCRIPTION_MASK_SOURCE : PA_SUBSCRIPTION_MASK_NULL;
    finish( pa_context_subscribe( _context, what, nullptr, nullptr ) );
}

void GSoundServer::watchSources( void ( *changed )( void* ), void* argument )
{
    _sourcesChanged = changed;
    _sourcesArgument = argument;
    if( connect( ) ) _subscribe( );
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

bool GSoundServer::isAnswering( )
{
    if( !connect( ) ) return false;
    const auto onInfo = []( pa_context*, const pa_server_info*, void* ) {};
    return finish( pa_context_get_server_info( _context, onInfo, nullptr ) );
}

bool GSoundServer::hasSource( const char* name )
{
    if( !connect( ) ) return true;
    bool refused = false;
    const auto onInfo = []( pa_context*, const pa_source_info*, int end, void* argument )
    { *static_cast<bool*>( argument ) |= end < 0; };
    const bool answered = finish( pa_context_get_source_info_by_name( _context, name, onInfo, &refused ) );
    return !answered || !refused;
}

pa_volume_t GSoundServer::getVolume( double volume )
{
    return static_cast<pa_volume_t>( std::lround( volume * PA_VOLUME_NORM ) );
}

void GSoundServer::release( pa_stream* stream )
{
    pa_stream_set_write_callback( stream, nullptr, nullptr );
    pa_stream_set_state_callback( stream, onArrival, nullptr );
    onArrival( stream, nullptr );
}

pa_cvolume GSoundServer::getWaveVolume( int channels ) const
{
    pa_cvolume volume;
    pa_cvolume_set( &volume, static_cast<unsigned>( channels ), getVolume( waveVolume ) );
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
