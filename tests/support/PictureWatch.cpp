// Reads times out of pictures on the screen: a field of four by four black and white blocks, sixteen bits, highest first. Twelve are a
// count of 4 ms of the monotonic clock, four their check.
// Usage: picture_watch X Y WIDTH HEIGHT      the field's place on the screen of $DISPLAY; the end of the input ends it
// A line each time that the blocks change: "<now in microseconds of the monotonic clock> <count, or -1 where the check fails>".
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <poll.h>
#include <unistd.h>
#include <xcb/xcb.h>

namespace
{
constexpr int EDGE = 4; // Blocks.
constexpr int ROUND_MS = 4;
constexpr int BYTES_PER_PIXEL = 4;
constexpr int LEAST_CONTRAST = 60;

struct Field
{
    int16_t x, y;
    uint16_t width, height;
};

int checkOf( int count )
{
    return ( count ^ count >> 4 ^ count >> 8 ^ 0xA ) & 0xF;
}

// The middle of a block: its edges are blurred.
int brightness( const uint8_t* pixels, const Field& field, int column, int row )
{
    const int width = field.width / EDGE;
    const int height = field.height / EDGE;
    int sum = 0;
    int count = 0;
    for( int y = row * height + height / 3; y < ( row + 1 ) * height - height / 3; y++ )
        for( int x = column * width + width / 3; x < ( column + 1 ) * width - width / 3; x++, count++ )
            sum += pixels[( y * field.width + x ) * BYTES_PER_PIXEL + 1];
    return count ? sum / count : 0;
}

int readBlocks( const uint8_t* pixels, const Field& field )
{
    std::array<int, EDGE * EDGE> light;
    for( int i = 0; i < EDGE * EDGE; i++ )
        light[static_cast<size_t>( i )] = brightness( pixels, field, i % EDGE, i / EDGE );
    const auto [darkest, brightest] = std::minmax_element( light.begin( ), light.end( ) );
    const int middle = ( *darkest + *brightest ) / 2;
    if( *brightest - *darkest < LEAST_CONTRAST ) return 0;
    int bits = 0;
    for( const int value : light ) bits = bits << 1 | ( value > middle ? 1 : 0 );
    return bits;
}

int64_t now( )
{
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now( ).time_since_epoch( ) )
        .count( );
}
} // namespace

int main( int argc, char** argv )
{
    if( argc != 5 ) return 2;
    const Field field{ static_cast<int16_t>( std::atoi( argv[1] ) ), static_cast<int16_t>( std::atoi( argv[2] ) ),
                       static_cast<uint16_t>( std::atoi( argv[3] ) ), static_cast<uint16_t>( std::atoi( argv[4] ) ) };
    xcb_connection_t* server = xcb_connect( nullptr, nullptr );
    if( xcb_connection_has_error( server ) ) return 1;
    const xcb_window_t root = xcb_setup_roots_iterator( xcb_get_setup( server ) ).data->root;
    int last = 0;
    pollfd input{ STDIN_FILENO, POLLIN, 0 };
    while( poll( &input, 1, ROUND_MS ) == 0 )
    {
        const std::unique_ptr<xcb_get_image_reply_t, decltype( &std::free )> image(
            xcb_get_image_reply( server,
                                 xcb_get_image( server, XCB_IMAGE_FORMAT_Z_PIXMAP, root, field.x, field.y, field.width,
                                                field.height, ~0U ),
                                 nullptr ),
            &std::free );
        if( !image ) return 1;
        const int length = xcb_get_image_data_length( image.get( ) );
        if( length < field.width * field.height * BYTES_PER_PIXEL ) return 1;
        const int bits = readBlocks( xcb_get_image_data( image.get( ) ), field );
        if( bits == last ) continue;
        last = bits;
        const int count = bits >> 4;
        std::cout << now( ) << ' ' << ( checkOf( count ) == ( bits & 0xF ) ? count : -1 ) << std::endl;
    }
    xcb_disconnect( server );
    return 0;
}
