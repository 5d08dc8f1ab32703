// Captures beside the bare request that each stands on, on an X server of their own; wall time, since most of it is the server's.
#include "Bench.h"

#include "platform/GScreen.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>

namespace
{
constexpr int WIDTH = 1920;
constexpr int HEIGHT = 1080;
constexpr GRect WHOLE = { 0, 0, 0x7FFFFFFF, 0x7FFFFFFF };
constexpr GRect PART = { 700, 400, 764, 464 };

struct Free
{
    void operator( )( void* memory ) const { std::free( memory ); }
};
template <typename T>
using Reply = std::unique_ptr<T, Free>;

// It ends with this program.
FILE* startServer( )
{
    FILE* server = popen(
        "exec setpriv --pdeathsig TERM Xvfb -displayfd 1 -screen 0 1920x1080x24 -nolisten tcp 2>/dev/null", "r" );
    char number[16] = { };
    if( !server || !std::fgets( number, sizeof( number ), server ) ) return nullptr;
    setenv( "DISPLAY", ( ":" + std::to_string( std::atoi( number ) ) ).c_str( ), 1 );
    return server;
}

// The anchor: one request, its answer awaited, nothing looked at.
class Bare
{
public:
    Bare( ) : _connection( xcb_connect( nullptr, nullptr ) )
    {
        _root = xcb_setup_roots_iterator( xcb_get_setup( _connection ) ).data->root;
        const int file = memfd_create( "bench", 0 );
        _isGood = file >= 0 && ftruncate( file, LENGTH ) == 0;
        _bytes = mmap( nullptr, LENGTH, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0 );
        _segment = xcb_generate_id( _connection );
        xcb_shm_attach_fd( _connection, _segment, file, 0 );
        getImage( { 0, 0, WIDTH, HEIGHT } );
    }
    ~Bare( )
    {
        xcb_disconnect( _connection );
        munmap( _bytes, LENGTH );
    }
    Bare( const Bare& ) = delete;
    Bare& operator=( const Bare& ) = delete;

    void getImage( const GRect& rect )
    {
        const Reply<xcb_shm_get_image_reply_t> reply( xcb_shm_get_image_reply(
            _connection,
            xcb_shm_get_image( _connection, _root, static_cast<int16_t>( rect.left ), static_cast<int16_t>( rect.top ),
                               static_cast<uint16_t>( rect.width( ) ), static_cast<uint16_t>( rect.height( ) ),
                               UINT32_MAX, XCB_IMAGE_FORMAT_Z_PIXMAP, _segment, 0 ),
            nullptr ) );
        _isGood = _isGood && reply;
    }
    void askPointer( )
    {
        const Reply<xcb_query_pointer_reply_t> reply(
            xcb_query_pointer_reply( _connection, xcb_query_pointer( _connection, _root ), nullptr ) );
        _isGood = _isGood && reply;
    }
    // Something for layouts to read: plain windows with children, as programs have them.
    void openWindows( int count )
    {
        for( int i = 0; i < count; ++i )
        {
            const xcb_window_t window = _open( _root, i * 20, 300, 200 );
            for( int child = 0; child < 3; ++child ) _open( window, child * 40, 30, 30 );
        }
        askPointer( );
    }
    bool isGood( ) const { return _isGood; }

private:
    static constexpr off_t LENGTH = off_t{ WIDTH } * HEIGHT * 4;

    xcb_window_t _open( xcb_window_t parent, int place, uint16_t width, uint16_t height )
    {
        const xcb_window_t window = xcb_generate_id( _connection );
        xcb_create_window( _connection, XCB_COPY_FROM_PARENT, window, parent, static_cast<int16_t>( place ),
                           static_cast<int16_t>( place ), width, height, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                           XCB_COPY_FROM_PARENT, 0, nullptr );
        xcb_map_window( _connection, window );
        return window;
    }

    xcb_connection_t* _connection;
    xcb_window_t _root = 0;
    void* _bytes = nullptr;
    xcb_shm_seg_t _segment = 0;
    bool _isGood = false;
};

bool run( Bench::Suite& suite )
{
    Bare bare;
    bare.openWindows( 12 );
    GScreen screen = GScreenOpen( );
    GImageFormat format;
    std::vector<GRect> rects;
    GFragList layout;
    std::map<uint32_t, GFragList> regions;
    int x = 0;
    int y = 0;
    bool good = GScreenCapture( screen, WHOLE, format ) && GScreenGetDamage( screen, rects );
    suite.time(
        "capture of 1080p", "us", { 1.6, 1.2 }, [&]( ) { good &= GScreenCapture( screen, WHOLE, format ) != nullptr; },
        [&]( ) {
            bare.getImage( { 0, 0, WIDTH, HEIGHT } );
        } );
    suite.time(
        "capture of 64x64", "us", { 1.5, 1.2 }, [&]( ) { good &= GScreenCapture( screen, PART, format ) != nullptr; },
        [&]( ) { bare.getImage( PART ); } );
    suite.time(
        "asking for damage when idle, beside a round trip", "us", { 0.3, 0.1 },
        [&]( ) { good &= GScreenGetDamage( screen, rects ); }, [&]( ) { bare.askPointer( ); } );
    suite.time(
        "position of the pointer", "us", { 1.3, 1.1 }, [&]( ) { good &= GScreenGetPointerPosition( x, y ); },
        [&]( ) { bare.askPointer( ); } );
    // Some sixteen answers a window: what it is and where, whose it is, its children and where they are.
    suite.time(
        "layout of 12 windows, beside as many round trips as it has answers", "us", { 0.5, 0.25 },
        [&]( ) { GScreenGetLayout( screen, layout, regions ); },
        [&]( )
        {
            for( int i = 0; i < 12 * 16; ++i ) bare.askPointer( );
        } );
    GScreenClose( screen );
    return good && bare.isGood( );
}
} // namespace

int main( int argc, char** argv )
{
    Bench::Suite suite( "screen", argc, argv );
    suite.useWallClock( true );
    FILE* server = startServer( );
    const bool good = server && run( suite );
    if( !good ) std::fputs( "The X server did not answer.\n", stderr );
    return good ? suite.finish( ) : 1;
}
