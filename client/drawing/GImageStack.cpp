#include "client/drawing/GImageStack.h"

#include "client/drawing/GFont.h"
#include "client/drawing/GRoundRect.h"

#include <algorithm>

namespace
{
// Far outside of any layer, and near enough that differences keep within 31 bits.
constexpr int64_t FARTHEST = 1 << 29;

int add( int a, int b )
{
    return static_cast<int>( std::clamp<int64_t>( int64_t( a ) + b, -FARTHEST, FARTHEST ) );
}

uint8_t mix( uint32_t from, uint32_t to, int shift, int position, int length )
{
    const int a = static_cast<int>( from >> shift & 255 ), b = static_cast<int>( to >> shift & 255 );
    return static_cast<uint8_t>( length < 2 ? a : a + ( b - a ) * position / ( length - 1 ) );
}

uint32_t mixColour( uint32_t from, uint32_t to, int position, int length )
{
    uint32_t colour = 0;
    for( int shift = 0; shift < 32; shift += 8 )
        colour |= static_cast<uint32_t>( mix( from, to, shift, position, length ) ) << shift;
    return colour;
}

// Gives a premultiplied pixel another alpha and keeps its straight colour.
void setAlpha( uint8_t* pixel, uint32_t alpha )
{
    const uint32_t old = pixel[3];
    for( int i = 0; i < 3 && old; i++ )
        pixel[i] = static_cast<uint8_t>( std::min( 255U, ( pixel[i] * alpha + old / 2 ) / old ) );
    pixel[3] = static_cast<uint8_t>( alpha );
}

// A premultiplied channel lies between 0 and its alpha, and is mirrored in there.
void invertPixel( uint8_t* pixel )
{
    for( int i = 0; i < 3; i++ ) pixel[i] = static_cast<uint8_t>( std::max( 0, pixel[3] - pixel[i] ) );
}
} // namespace

GImageStack::GImageStack( ) : _dirty( GRectAccumulator( ) )
{
    _frames.emplace_back( );
}

void GImageStack::pushLayer( const GImageFormat& format, char* pixels, IGInputHandler** inputMap )
{
    pushLayer( format, pixels, inputMap, EVERYTHING );
}

void GImageStack::pushLayer( const GImageFormat& format, char* pixels, IGInputHandler** inputMap, const GRect& part )
{
    GPRECONDITION( format.width >= 1 && format.height >= 1 );
    GPRECONDITION( format.type == GIT_RGBA32 );
    GASSERT( !_frames.empty( ) );
    Frame frame;
    frame.rect = { _frames.back( ).rect.left, _frames.back( ).rect.top, format.width, format.height };
    frame.part = part;
    frame.format = format;
    frame.pixels = pixels;
    frame.inputMap = inputMap;
    _frames.push_back( frame );
    _dirty = GRectAccumulator( );
    _focus = GRect( );
}

void GImageStack::pushTarget( const GRect& rect )
{
    GPRECONDITION( rect.right >= rect.left && rect.bottom >= rect.top );
    GASSERT( !_frames.empty( ) );
    Frame frame = _frames.back( );
    if( frame.pixels ) frame.rect = GRectIntersect( _moved( rect ), frame.rect );
    _frames.push_back( frame );
}

void GImageStack::pop( )
{
    GASSERT( !_frames.empty( ) );
    _frames.pop_back( );
}

void GImageStack::getPosition( int& x, int& y ) const
{
    GASSERT( !_frames.empty( ) );
    x = _frames.back( ).rect.left;
    y = _frames.back( ).rect.top;
}

void GImageStack::getDimensions( int& width, int& height ) const
{
    GASSERT( !_frames.empty( ) );
    width = _frames.back( ).rect.width( );
    height = _frames.back( ).rect.height( );
}

bool GImageStack::_drawable( ) const
{
    GASSERT( !_frames.empty( ) );
    return _frames.back( ).pixels && GRectHasVolume( _getClip( ) );
}

bool GImageStack::isWanted( ) const
{
    GASSERT( !_frames.empty( ) );
    return _frames.back( ).part == EVERYTHING || GRectHasVolume( _getClip( ) );
}

bool GImageStack::isWanted( const GRect& rect ) const
{
    GASSERT( !_frames.empty( ) );
    return _frames.back( ).part == EVERYTHING || GRectHasVolume( GRectIntersect( _moved( rect ), _getClip( ) ) );
}

bool GImageStack::isWhole( ) const
{
    GASSERT( !_frames.empty( ) );
    return _getClip( ) == _frames.back( ).rect;
}

GRect GImageStack::_getClip( ) const
{
    return GRectIntersect( _frames.back( ).rect, _frames.back( ).part );
}

GRect GImageStack::_moved( const GRect& rect ) const
{
    const GRect& frame = _frames.back( ).rect;
    return { add( rect.left, frame.left ), add( rect.top, frame.top ), add( rect.right, frame.left ),
             add( rect.bottom, frame.top ) };
}

void GImageStack::_touch( const GRect& rect )
{
    _dirty = GRectUnion( _dirty, rect );
}

void GImageStack::drawBitmap( const GImageFormat& format, const char* pixels, const GRect& sourceRect, int mode )
{
    if( !_drawable( ) || !pixels || GRectEmpty( sourceRect ) ) return;
    const Frame& frame = _frames.back( );
    _touch( GImageCopy( format, pixels, sourceRect, frame.format, frame.pixels, frame.rect, _getClip( ),
                        mode | GIC_PREMULTIPLIED ) );
}

void GImageStack::drawBitmap( const GImageFormat& format, const char* pixels, const GRect& sourceRect,
                              const GRect& destRect, int mode )
{
    if( !_drawable( ) || !pixels || GRectEmpty( sourceRect ) || GRectEmpty( destRect ) ) return;
    const Frame& frame = _frames.back( );
    _touch( GImageCopy( format, pixels, sourceRect, frame.format, frame.pixels, _moved( destRect ), _getClip( ),
                        mode | GIC_PREMULTIPLIED ) );
}

void GImageStack::drawGradient( uint32_t from, uint32_t to, bool vertical, bool alphaOnly )
{
    if( !_drawable( ) ) return;
    const Frame& frame = _frames.back( );
    const GRect area = GRectIntersect( _getClip( ), { 0, 0, frame.format.width, frame.format.height } );
    const int length = vertical ? frame.rect.height( ) : frame.rect.width( );
    const int begin = vertical ? area.top : area.left, end = vertical ? area.bottom : area.right;
    for( int i = begin; i < end; i++ )
    {
        const int position = i - ( vertical ? frame.rect.top : frame.rect.left );
        const uint32_t straight = mixColour( from, to, position, length );
        const GRect line =
            vertical ? GRect{ area.left, i, area.right, i + 1 } : GRect{ i, area.top, i + 1, area.bottom };
        if( !alphaOnly )
        {
            GImageFillRect( frame.format, frame.pixels, line, GColorPremultiply( straight ) );
            continue;
        }
        uint8_t* pixels = reinterpret_cast<uint8_t*>( frame.pixels );
        for( int y = line.top; y < line.bottom; y++ )
            for( int x = line.left; x < line.right; x++ )
                setAlpha( pixels + ( static_cast<ptrdiff_t>( y ) * frame.format.width + x ) * 4, straight >> 24 );
    }
    if( GRectHasVolume( area ) ) _touch( area );
}

int GImageStack::drawText( const GWString& text, GFont& font, const GRect& rect )
{
    GASSERT( !_frames.empty( ) );
    const Frame& frame = _frames.back( );
    return font.drawText( frame.format, frame.pixels, text, _moved( rect ), _getClip( ), &_dirty );
}

int GImageStack::drawText( const GWString& text, GFont& font )
{
    int width, height;
    getDimensions( width, height );
    return drawText( text, font, { 0, 0, width, height } );
}

void GImageStack::drawHorizLine( int x, int y, int width, uint32_t colour )
{
    fillRect( { x, y, add( x, width ), add( y, 1 ) }, colour );
}

void GImageStack::drawRect( const GRect& rect, uint32_t colour )
{
    // A frame that nobody sees leaves what stands below it.
    if( !_drawable( ) || !( colour >> 24 ) ) return;
    const Frame& frame = _frames.back( );
    const GRect area = GRectIntersect( _moved( rect ), frame.rect );
    if( GRectEmpty( area ) ) return;
    const int right = std::max( area.left, area.right - 1 ), bottom = std::max( area.top, area.bottom - 1 );
    for( const GRect& side :
         { GRect{ area.left, area.top, area.right, area.top + 1 }, GRect{ area.left, bottom, area.right, area.bottom },
           GRect{ area.left, area.top, area.left + 1, area.bottom },
           GRect{ right, area.top, area.right, area.bottom } } )
    {
        const GRect visible = GRectIntersect( side, frame.part );
        if( GRectHasVolume( visible ) )
            GImageFillRect( frame.format, frame.pixels, visible, GColorPremultiply( colour ) );
    }
    _touch( GRectIntersect( area, frame.part ) );
}

void GImageStack::fillRect( const GRect& rect, uint32_t colour )
{
    if( !_drawable( ) ) return;
    const Frame& frame = _frames.back( );
    const GRect area = GRectIntersect( _moved( rect ), _getClip( ) );
    if( GRectEmpty( area ) ) return;
    GImageFillRect( frame.format, frame.pixels, area, GColorPremultiply( colour ) );
    _touch( area );
}

void GImageStack::fillRoundRect( const GRect& rect, int radius, uint32_t colour )
{
    if( !_drawable( ) || GRectEmpty( rect ) ) return;
    const Frame& frame = _frames.back( );
    _touch( GRoundRectFill( frame.format, frame.pixels, _moved( rect ), _getClip( ), radius, colour ) );
}

void GImageStack::drawRoundRect( const GRect& rect, int radius, int width, uint32_t colour )
{
    if( !_drawable( ) || GRectEmpty( rect ) ) return;
    const Frame& frame = _frames.back( );
    _touch( GRoundRectDraw( frame.format, frame.pixels, _moved( rect ), _getClip( ), radius, width, colour ) );
}

void GImageStack::invertRect( const GRect& rect )
{
    if( !_drawable( ) ) return;
    const Frame& frame = _frames.back( );
    const GRect layer{ 0, 0, frame.format.width, frame.format.height };
    const GRect area = GRectIntersect( GRectIntersect( _moved( rect ), _getClip( ) ), layer );
    if( GRectEmpty( area ) ) return;
    uint8_t* pixels = reinterpret_cast<uint8_t*>( frame.pixels );
    for( int y = area.top; y < area.bottom; y++ )
        for( int x = area.left; x < area.right; x++ )
            invertPixel( pixels + ( static_cast<ptrdiff_t>( y ) * frame.format.width + x ) * 4 );
    _touch( area );
}

void GImageStack::setInputHandler( IGInputHandler* handler )
{
    if( !_drawable( ) || !_frames.back( ).inputMap ) return;
    const Frame& frame = _frames.back( );
    const GRect area = GRectIntersect( _getClip( ), { 0, 0, frame.format.width, frame.format.height } );
    if( GRectEmpty( area ) ) return;
    for( int y = area.top; y < area.bottom; y++ )
        std::fill_n( frame.inputMap + static_cast<ptrdiff_t>( y ) * frame.format.width + area.left, area.width( ),
                     handler );
}

void GImageStack::markFocus( )
{
    if( _drawable( ) ) _focus = _frames.back( ).rect;
}

bool GImageStack::getFocus( GRect& rect ) const
{
    rect = _focus;
    return GRectHasVolume( _focus );
}
