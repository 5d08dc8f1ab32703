#include "platform/screen/GScreenFrame.h"

#include "base/GPortable.h"
#include "platform/common/GScreenPixels.h"

namespace
{
// More than any desktop has; what is shared is twice as much.
constexpr uint64_t MOST_BYTES = uint64_t{ 512 } << 20;
constexpr uint32_t ALL_PLANES = UINT32_MAX;
constexpr size_t PAGE = 4096;

const xcb_visualtype_t* findVisual( const xcb_screen_t& screen )
{
    for( auto depths = xcb_screen_allowed_depths_iterator( &screen ); depths.rem > 0; xcb_depth_next( &depths ) )
        for( auto visuals = xcb_depth_visuals_iterator( depths.data ); visuals.rem > 0;
             xcb_visualtype_next( &visuals ) )
            if( visuals.data->visual_id == screen.root_visual ) return visuals.data;
    return nullptr;
}

const xcb_format_t* findFormat( const xcb_setup_t* setup, uint8_t depth )
{
    for( auto formats = xcb_setup_pixmap_formats_iterator( setup ); formats.rem > 0; xcb_format_next( &formats ) )
        if( formats.data->depth == depth ) return formats.data;
    return nullptr;
}
} // namespace

const char* GScreenFrame::capture( const GRect& dirtyRect, GImageFormat& format )
{
    const auto startAgain = [&]( ) { return _rebuild( ) && _copy( dirtyRect ); };
    if( !_copy( dirtyRect ) && !_connection.run( startAgain ) )
    {
        _release( );
        _connection.close( );
    }
    format = _format;
    return _memory.get( );
}

bool GScreenFrame::_rebuild( )
{
    _release( );
    if( !_readDisplay( ) ) return false;
    const size_t frame = _stride * static_cast<size_t>( _format.height );
    _staging = ( frame + PAGE - 1 ) / PAGE * PAGE;
    const size_t staged = _getServerStride( _format.width ) * static_cast<size_t>( _format.height );
    _memory.allocate( _connection, _staging + staged );
    GASSERT_TEXT( _memory.get( ), "screen->screenBuffer" );
    _generation = _connection.getGeneration( );
    return _connection.isAlive( );
}

void GScreenFrame::_release( )
{
    _memory.release( );
    _format = { };
}

// How the display is now. What it tells is input: a kind of display that no type stands for is left alone.
bool GScreenFrame::_readDisplay( )
{
    const xcb_screen_t& screen = _connection.getScreen( );
    const xcb_setup_t* setup = xcb_get_setup( _connection.get( ) );
    const xcb_visualtype_t* visual = findVisual( screen );
    const xcb_format_t* stored = findFormat( setup, screen.root_depth );
    _connection.readEvents( );
    _sizeChanges = _connection.getSizeChanges( );
    const auto root = _readSize( );
    if( !root || root->width == 0 || root->height == 0 ) return false;
    _pixels = visual && stored && setup->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST
                  ? GScreenFindPixels( stored->bits_per_pixel, visual->red_mask, visual->green_mask, visual->blue_mask )
                  : nullptr;
    if( !_pixels )
    {
        GLOG( u"WARNING Trying to capture unsupported bitdepth ", screen.root_depth, u", ignoring." );
        return false;
    }
    _pixelBytes = static_cast<size_t>( _pixels->bits / 8 );
    _rowPadding = stored->scanline_pad >= 8 ? stored->scanline_pad / 8U : 1U;
    _stride = root->width * _pixelBytes;
    if( root->width > INT16_MAX || root->height > INT16_MAX ||
        uint64_t{ _getServerStride( root->width ) } * root->height > MOST_BYTES )
    {
        GLOG( u"WARNING A desktop of ", root->width, u"x", root->height, u" is too large to capture, ignoring." );
        return false;
    }
    _format = { _pixels->type, root->width, root->height };
    return true;
}

// False when the server refused or the display is another one by now: news of its size come before the answer.
bool GScreenFrame::_copy( const GRect& dirtyRect )
{
    if( !_memory.get( ) || !_connection.isAlive( ) || _generation != _connection.getGeneration( ) ) return false;
    const GRect rect = GRectIntersect( dirtyRect, { 0, 0, _format.width, _format.height } );
    bool copied = true;
    if( GRectHasVolume( rect ) )
        copied = _memory.getSegment( ) ? _copyShared( rect ) : _copyPlain( rect );
    else
        _connection.readEvents( );
    _connection.dropEvents( );
    return copied && _connection.isAlive( ) && _hasSameSize( );
}

// One change can be told several times.
bool GScreenFrame::_hasSameSize( )
{
    if( _sizeChanges == _connection.getSizeChanges( ) ) return true;
    _sizeChanges = _connection.getSizeChanges( );
    const auto root = _readSize( );
    return root && root->width == _format.width && root->height == _format.height;
}

GScreenReply<xcb_get_geometry_reply_t> GScreenFrame::_readSize( )
{
    xcb_connection_t* connection = _connection.get( );
    return GScreenReply<xcb_get_geometry_reply_t>(
        xcb_get_geometry_reply( connection, xcb_get_geometry( connection, _connection.getRoot( ) ), nullptr ) );
}

bool GScreenFrame::_copyShared( const GRect& rect )
{
    const size_t serverStride = _getServerStride( rect.width( ) );
    // Whole rows arrive in their place.
    const bool direct = rect.width( ) == _format.width && serverStride == _stride;
    char* target = _at( rect.left, rect.top );
    const size_t offset = direct ? static_cast<size_t>( target - _memory.get( ) ) : _staging;
    const GScreenReply<xcb_shm_get_image_reply_t> reply( xcb_shm_get_image_reply(
        _connection.get( ),
        xcb_shm_get_image( _connection.get( ), _connection.getRoot( ), static_cast<int16_t>( rect.left ),
                           static_cast<int16_t>( rect.top ), static_cast<uint16_t>( rect.width( ) ),
                           static_cast<uint16_t>( rect.height( ) ), ALL_PLANES, XCB_IMAGE_FORMAT_Z_PIXMAP,
                           _memory.getSegment( ), static_cast<uint32_t>( offset ) ),
        nullptr ) );
    if( !reply ) return false;
    GScreenCopyRows( *_pixels, _memory.get( ) + offset, serverStride, target, _stride, rect.width( ), rect.height( ) );
    return true;
}

bool GScreenFrame::_copyPlain( const GRect& rect )
{
    const GScreenReply<xcb_get_image_reply_t> reply( xcb_get_image_reply(
        _connection.get( ),
        xcb_get_image( _connection.get( ), XCB_IMAGE_FORMAT_Z_PIXMAP, _connection.getRoot( ),
                       static_cast<int16_t>( rect.left ), static_cast<int16_t>( rect.top ),
                       static_cast<uint16_t>( rect.width( ) ), static_cast<uint16_t>( rect.height( ) ), ALL_PLANES ),
        nullptr ) );
    const size_t serverStride = _getServerStride( rect.width( ) );
    if( !reply || xcb_get_image_data_length( reply.get( ) ) < 0 ||
        static_cast<size_t>( xcb_get_image_data_length( reply.get( ) ) ) <
            serverStride * static_cast<size_t>( rect.height( ) ) )
        return false;
    GScreenCopyRows( *_pixels, reinterpret_cast<const char*>( xcb_get_image_data( reply.get( ) ) ), serverStride,
                     _at( rect.left, rect.top ), _stride, rect.width( ), rect.height( ) );
    return true;
}

char* GScreenFrame::_at( int x, int y ) const
{
    return _memory.get( ) + static_cast<size_t>( y ) * _stride + static_cast<size_t>( x ) * _pixelBytes;
}

size_t GScreenFrame::_getServerStride( int width ) const
{
    const size_t length = static_cast<size_t>( width ) * _pixelBytes;
    return ( length + _rowPadding - 1 ) / _rowPadding * _rowPadding;
}
