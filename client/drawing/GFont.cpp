#include "client/drawing/GFont.h"

#include "base/GUtil.h"
#include "image/GColor.h"
#include "image/GImage.h"
#include "platform/GText.h"

#include <algorithm>

namespace
{
constexpr int DEFAULT_SIZE = 16;
constexpr int BOLD = 700;
constexpr int PLAIN = 400;
// A text larger than this is cut; no window is larger.
constexpr int MAX_EDGE = 8192;

// Cuts at commas and keeps empty fields.
GStringVector splitFields( const GWString& text )
{
    GStringVector fields;
    size_t begin = 0;
    for( ;; )
    {
        const size_t comma = text.find( u',', begin );
        fields.push_back( GTrim( GWStringView( text ).substr( begin, comma - begin ) ) );
        if( comma == GWString::npos ) return fields;
        begin = comma + 1;
    }
}

GWString field( const GStringVector& fields, size_t i, const char16_t* absent )
{
    return i < fields.size( ) && !fields[i].empty( ) ? fields[i] : GWString( absent );
}
} // namespace

struct GFont::Platform
{
    ~Platform( )
    {
        if( text ) GTextClose( text );
    }
    GText text = nullptr;
    int flags = 0;
    int wrap = 0; // The width that lines were broken at.
};

GFont::GFont( ) : _platform( std::make_unique<Platform>( ) )
{
    update( u"16" );
    _fontString.clear( );
}

GFont::~GFont( ) = default;

bool GFont::update( const GWString& fontString )
{
    if( _platform->text && GCaseEquals( fontString, _fontString ) ) return false;
    _fontString = fontString;
    const GStringVector fields = splitFields( fontString );
    _size = static_cast<int>( GCalc( field( fields, 0, u"16" ) ) );
    if( _size < 1 ) _size = DEFAULT_SIZE;
    _parseStyle( GToLower( field( fields, 1, u"" ) ) );
    _colour = GColorFromText( field( fields, 2, u"#000000FF" ) );
    _face = field( fields, 3, u"Tahoma" );
    if( _platform->text ) GTextClose( _platform->text );
    GTextFont font;
    font.face = _face;
    font.size = _size;
    font.weight = _bold ? BOLD : PLAIN;
    font.italic = _italic;
    font.underline = _underline;
    font.strikeOut = _strikeOut;
    font.antialiased = _antialiased;
    _platform->text = GTextOpen( font );
    _text.clear( );
    _imageFormat = GImageFormat( );
    return true;
}

void GFont::_parseStyle( const GWString& style )
{
    const auto has = [&style]( char16_t letter ) { return style.find( letter ) != GWString::npos; };
    _bold = has( u'b' );
    _italic = has( u'i' );
    _underline = has( u'u' );
    _strikeOut = has( u's' );
    _antialiased = !has( u'n' );
    _multiLine = has( u'm' );
    _centred = has( u'c' );
    _right = !_centred && has( u'r' );
    _platform->flags = ( _multiLine ? GTEXT_WORDBREAK : GTEXT_END_ELLIPSIS ) | ( _centred ? GTEXT_CENTER : 0 ) |
                       ( _right ? GTEXT_RIGHT : 0 );
}

void GFont::measureText( const GWString& text, int& width, int& height )
{
    const int wrap = _multiLine ? std::max( width, 0 ) : 0;
    GTextMeasure( _platform->text, text, _platform->flags, wrap, width, height );
}

GText GFont::getPlatformText( ) const
{
    return _platform->text;
}

int GFont::getHeight( )
{
    return GTextGetHeight( _platform->text );
}

void GFont::_render( const GWString& text, int width, int height )
{
    const size_t pixels = static_cast<size_t>( width ) * static_cast<size_t>( height );
    if( _gdiBuffer.size( ) < pixels ) _gdiBuffer.resize( pixels );
    GASSERT_TEXT( !_gdiBuffer.empty( ), "_gdiBuffer" );
    uint8_t* coverage = reinterpret_cast<uint8_t*>( _gdiBuffer.data( ) );
    GTextDraw( _platform->text, text, _platform->flags, width, height, coverage, width );
    _imageFormat = { GIT_BGRA32, width, height };
    _image.resize( pixels * 4 );
    const uint32_t opacity = _colour >> 24;
    uint8_t* to = reinterpret_cast<uint8_t*>( _image.data( ) );
    for( size_t i = 0; i < pixels; i++, to += 4 )
    {
        to[0] = static_cast<uint8_t>( _colour );
        to[1] = static_cast<uint8_t>( _colour >> 8 );
        to[2] = static_cast<uint8_t>( _colour >> 16 );
        to[3] = static_cast<uint8_t>( ( coverage[i] * opacity + 127 ) / 255 );
    }
    _text = text;
    _renderCount++;
}

int GFont::drawText( const GImageFormat& format, char* pixels, const GWString& text, const GRect& rect,
                     const GRect& clip, GRect* touched )
{
    if( GRectEmpty( rect ) ) return _textHeight;
    const int wrap = _multiLine ? rect.width( ) : 0;
    const int fixed = _centred || _right ? std::min( rect.width( ), MAX_EDGE ) : 0;
    const bool same =
        _imageFormat.width > 0 && text == _text && wrap == _platform->wrap && ( !fixed || fixed == _imageFormat.width );
    if( !same )
    {
        int width = 0, height = 0;
        GTextMeasure( _platform->text, text, _platform->flags, wrap, width, height );
        _textHeight = height;
        const int interWidth = fixed ? fixed : std::min( width, MAX_EDGE );
        const int interHeight = std::min( height, MAX_EDGE );
        if( text.empty( ) ) return _textHeight;
        if( !GVERIFY( interWidth && interHeight ) ) return _textHeight;
        _render( text, interWidth, interHeight );
        _platform->wrap = wrap;
    }
    if( !pixels ) return _textHeight;
    const GRect whole{ 0, 0, _imageFormat.width, _imageFormat.height };
    const GRect changed = GImageCopy( _imageFormat, _image.data( ), whole, format, pixels, rect,
                                      GRectIntersect( clip, rect ), GIC_PREMULTIPLIED );
    if( touched ) *touched = GRectUnion( *touched, changed );
    return _textHeight;
}
