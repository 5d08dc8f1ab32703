#include "client/drawing/GTextBox.h"

#include "client/drawing/GFont.h"

#include <algorithm>

namespace
{
constexpr int MAX_EDGE = 8192;
} // namespace

GTextBox::~GTextBox( )
{
    if( _layout ) GTextLayoutClose( _layout );
}

GTextLayout GTextBox::layout( GFont& font, const GWString& text, bool severalLines, int width )
{
    const bool same = _layout && text == _text && severalLines == _severalLines && width == _width &&
                      font.getFontString( ) == _fontString;
    if( same ) return _layout;
    if( _layout ) GTextLayoutClose( _layout );
    _text = text;
    _severalLines = severalLines;
    _width = width;
    _fontString = font.getFontString( );
    _colour = font.getColour( );
    _lineHeight = font.getHeight( );
    _layout = GTextLayoutOpen( font.getPlatformText( ), text, severalLines ? GTEXT_WORDBREAK : 0, width );
    _stale = true;
    return _layout;
}

void GTextBox::draw( GImageStack& images, int left, int top )
{
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    width = std::min( width, MAX_EDGE );
    height = std::min( height, MAX_EDGE );
    if( !_layout || width < 1 || height < 1 ) return;
    const GImageFormat format{ GIT_BGRA32, width, height };
    if( _stale || !( format == _format ) || left != _left || top != _top )
    {
        _stale = false;
        _format = format;
        _left = left;
        _top = top;
        _drawCount++;
        const size_t count = static_cast<size_t>( width ) * static_cast<size_t>( height );
        _coverage.resize( count );
        _pixels.resize( count * 4 );
        auto* coverage = reinterpret_cast<uint8_t*>( _coverage.data( ) );
        GTextLayoutDraw( _layout, left, top, width, height, coverage, width );
        auto* to = reinterpret_cast<uint8_t*>( _pixels.data( ) );
        for( size_t i = 0; i < count; i++, to += 4 )
        {
            to[0] = static_cast<uint8_t>( _colour );
            to[1] = static_cast<uint8_t>( _colour >> 8 );
            to[2] = static_cast<uint8_t>( _colour >> 16 );
            to[3] = static_cast<uint8_t>( ( coverage[i] * ( _colour >> 24 ) + 127 ) / 255 );
        }
    }
    images.drawBitmap( _format, _pixels.data( ), { 0, 0, width, height }, 0 );
}
