// Starts a program and tells when it has painted something as large as a window: the milliseconds since its start and the processor
// time that it took until then. The display must have nothing else that paints, and DAMAGE.
// Usage: bench_program PROGRAM [ARGUMENT...]      prints "<wall ms> <processor ms>"
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/damage.h>
#include <xcb/xcb.h>

namespace
{
constexpr int SMALLEST_EDGE = 100;
constexpr int DEADLINE_MILLISECONDS = 60000;

struct Free
{
    void operator( )( void* memory ) const { std::free( memory ); }
};
template <typename T>
using Reply = std::unique_ptr<T, Free>;

double now( )
{
    timespec time;
    clock_gettime( CLOCK_MONOTONIC, &time );
    return static_cast<double>( time.tv_sec ) * 1e3 + static_cast<double>( time.tv_nsec ) * 1e-6;
}

// Of all threads, by the scheduler.
double processorTime( pid_t pid )
{
    clockid_t clock;
    timespec time{ };
    if( clock_getcpuclockid( pid, &clock ) || clock_gettime( clock, &time ) ) return 0;
    return static_cast<double>( time.tv_sec ) * 1e3 + static_cast<double>( time.tv_nsec ) * 1e-6;
}

// True when there is anything but the black of the empty root, which a window that is still transparent shows as well.
bool showsSomething( xcb_connection_t* connection, const xcb_rectangle_t& area )
{
    const xcb_window_t root = xcb_setup_roots_iterator( xcb_get_setup( connection ) ).data->root;
    const Reply<xcb_get_image_reply_t> image{ xcb_get_image_reply(
        connection,
        xcb_get_image( connection, XCB_IMAGE_FORMAT_Z_PIXMAP, root, area.x, area.y, area.width, area.height, ~0u ),
        nullptr ) };
    if( !image ) return false;
    const uint8_t* bytes = xcb_get_image_data( image.get( ) );
    const int length = xcb_get_image_data_length( image.get( ) );
    for( int i = 0; i + 3 < length; i += 4 )
        if( bytes[i] || bytes[i + 1] || bytes[i + 2] ) return true;
    return false;
}

// True for the first damage that is a window's.
bool isPainted( xcb_connection_t* connection, int damageEvent )
{
    while( const Reply<xcb_generic_event_t> event{ xcb_poll_for_event( connection ) } )
    {
        if( ( event->response_type & 0x7F ) != damageEvent ) continue;
        const auto* damage = reinterpret_cast<const xcb_damage_notify_event_t*>( event.get( ) );
        if( damage->area.width >= SMALLEST_EDGE && damage->area.height >= SMALLEST_EDGE &&
            showsSomething( connection, damage->area ) )
            return true;
    }
    return false;
}

// The number of the damage event; 0 when the server has none.
int watchDamage( xcb_connection_t* connection )
{
    const auto* extension = xcb_get_extension_data( connection, &xcb_damage_id );
    if( !extension || !extension->present ) return 0;
    const Reply<xcb_damage_query_version_reply_t> version{
        xcb_damage_query_version_reply( connection, xcb_damage_query_version( connection, 1, 1 ), nullptr ) };
    const xcb_window_t root = xcb_setup_roots_iterator( xcb_get_setup( connection ) ).data->root;
    xcb_damage_create( connection, xcb_generate_id( connection ), root, XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES );
    xcb_flush( connection );
    return version ? extension->first_event + XCB_DAMAGE_NOTIFY : 0;
}
} // namespace

int main( int argc, char** argv )
{
    if( argc < 2 ) return 2;
    xcb_connection_t* connection = xcb_connect( nullptr, nullptr );
    const int damageEvent = watchDamage( connection );
    if( !damageEvent ) return 2;
    // What other programs still had to paint is over when this has been answered.
    const Reply<xcb_get_input_focus_reply_t> reply{
        xcb_get_input_focus_reply( connection, xcb_get_input_focus( connection ), nullptr ) };
    isPainted( connection, damageEvent );

    const double begin = now( );
    const pid_t pid = fork( );
    if( pid == 0 )
    {
        execvp( argv[1], argv + 1 );
        _exit( 127 );
    }
    pollfd source{ xcb_get_file_descriptor( connection ), POLLIN, 0 };
    bool painted = false;
    while( !painted && now( ) - begin < DEADLINE_MILLISECONDS && waitpid( pid, nullptr, WNOHANG ) == 0 )
    {
        poll( &source, 1, 100 );
        painted = isPainted( connection, damageEvent );
    }
    const double wall = now( ) - begin;
    const double processor = processorTime( pid );
    kill( pid, SIGKILL );
    waitpid( pid, nullptr, 0 );
    xcb_disconnect( connection );
    if( !painted ) return 1;
    std::printf( "%.2f %.2f\n", wall, processor );
    return 0;
}
