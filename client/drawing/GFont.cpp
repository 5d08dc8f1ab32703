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
constexpr int MAX_AREA = 1 << 22;
void ( *observer_ )( const GWString& text ) = nullptr;

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
};

GFont::GFont( ) : _platform( std::make_unique<Platform>( ) )
{
    update( u"16" );
    _fontString.clear( );
}

GFont::~GFont( ) = default;

void GFont::setObserver( void ( *observer )( const GWString& text ) )
{
    observer_ = observer;
}

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
    _pictures.clear( );
    _measures.clear( );
    _nextMeasure = 0;
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
    _ellipsis = has( u'e' );
    _platform->flags = ( _multiLine ? GTEXT_WORDBREAK : GTEXT_END_ELLIPSIS ) | ( _centred ? GTEXT_CENTER : 0 ) |
                       ( _right ? GTEXT_RIGHT : 0 );
}

void GFont::measureText( const GWString& text, int& width, int& height )
{
    if( observer_ ) observer_( text );
    const Measure& measure = _measure( text, _multiLine ? std::max( width, 0 ) : 0 );
    width = measure.width;
    height = measure.height;
}

const GFont::Measure& GFont::_measure( const GWString& text, int wrap )
{
    const auto found =
        std::find_if( _measures.begin( ), _measures.end( ),
                      [&]( const Measure& measure ) { return measure.wrap == wrap && measure.text == text; } );
    if( found != _measures.end( ) ) return *found;
    if( _measures.size( ) < MAX_MEASURES ) _measures.emplace_back( );
    Measure& measure = _measures[_nextMeasure];
    _nextMeasure = ( _nextMeasure + 1 ) % MAX_MEASURES;
    measure.text = text;
    measure.wrap = wrap;
    GTextMeasure( _platform->text, text, _platform->flags, wrap, measure.width, measure.height );
    return measure;
}

GText GFont::getPlatformText( ) const
{
    return _platform->text;
}

int GFont::getHeight( )
{
    return GTextGetHeight( _platform->text );
}

// The first of the least recently used ones that must go, or a new one.
GFont::Picture& GFont::_makeRoom( int64_t pixels )
{
    for( const Picture& picture : _pictures ) pixels += int64_t( picture.format.width ) * picture.format.height;
    const auto older = []( const Picture& a, const Picture& b ) { return a.lastUse < b.lastUse; };
    while( !_pictures.empty( ) && ( _pictures.size( ) >= MAX_PICTURES || pixels > MAX_PIXELS ) )
    {
        const auto oldest = std::min_element( _pictures.begin( ), _pictures.end( ), older );
        pixels -= int64_t( oldest->format.width ) * oldest->format.height;
        std::swap( *oldest, _pictures.back( ) );
        const bool enough = _pictures.size( ) <= MAX_PICTURES && pixels <= MAX_PIXELS;
        if( enough || _pictures.size( ) == 1 ) return _pictures.back( );
        _pictures.pop_back( );
    }
    return _pictures.emplace_back( );
}

GFont::Picture* GFont::_find( const GWString& text, int wrap, int fixed )
{
    const auto found = std::find_if( _pictures.begin( ), _pictures.end( ),
                                     [&]( const Picture& picture ) {
                                         return picture.wrap == wrap && picture.fixed == fixed && picture.text == text;
                                     } );
    return found == _pictures.end( ) ? nullptr : &*found;
}

void GFont::_render( Picture& picture )
{
    const int width = picture.format.width, height = picture.format.height;
    const size_t pixels = static_cast<size_t>( width ) * static_cast<size_t>( height );
    if( _gdiBuffer.size( ) < pixels ) _gdiBuffer.resize( pixels );
    GASSERT_TEXT( !_gdiBuffer.empty( ), "_gdiBuffer" );
    uint8_t* coverage = reinterpret_cast<uint8_t*>( _gdiBuffer.data( ) );
    GTextDraw( _platform->text, picture.text, _platform->flags, width, height, coverage, width );
    picture.pixels.resize( pixels * 4 );
    const uint32_t opacity = _colour >> 24;
    uint8_t* to = reinterpret_cast<uint8_t*>( picture.pixels.data( ) );
    for( size_t i = 0; i < pixels; i++, to += 4 )
    {
        to[0] = static_cast<uint8_t>( _colour );
        to[1] = static_cast<uint8_t>( _colour >> 8 );
        to[2] = static_cast<uint8_t>( _colour >> 16 );
        to[3] = static_cast<uint8_t>( ( coverage[i] * opacity + 127 ) / 255 );
    }
    _renderCount++;
}

int GFont::drawText( const GImageFormat& format, char* pixels, const GWString& text, const GRect& rect,
                     const GRect& clip, GRect* touched )
{
    if( observer_ ) observer_( text );
    if( GRectEmpty( rect ) ) return _textHeight;
    const int room = std::min( rect.width( ), MAX_EDGE );
    const int wrap = _multiLine ? rect.width( ) : 0;
    int fixed = _centred || _right ? room : 0;
    // Without alignment a text is as wide as it is, and is cut by its rectangle.
    if( _ellipsis && !_multiLine && !fixed && _measure( text, 0 ).width > room ) fixed = room;
    Picture* picture = _find( text, wrap, fixed );
    if( !picture )
    {
        const Measure measure = _measure( text, wrap );
        _textHeight = measure.height;
        const int interWidth = fixed ? fixed : std::min( measure.width, MAX_EDGE );
        const int interHeight = std::min( { measure.height, MAX_EDGE, MAX_AREA / std::max( interWidth, 1 ) } );
        if( text.empty( ) ) return _textHeight;
        // A text of nothing that shows has no width.
        if( !interWidth && interHeight ) return _textHeight;
        if( !GVERIFY( interWidth && interHeight ) ) return _textHeight;
        picture = &_makeRoom( int64_t( interWidth ) * interHeight );
        picture->text = text;
        picture->wrap = wrap;
        picture->fixed = fixed;
        picture->textHeight = measure.height;
        picture->format = { GIT_BGRA32, interWidth, interHeight };
        _render( *picture );
    }
    picture->lastUse = ++_useCount;
    _textHeight = picture->textHeight;
    if( !pixels ) return _textHeight;
    const GRect whole{ 0, 0, picture->format.width, picture->format.height };
    const GRect changed = GImageCopy( picture->format, picture->pixels.data( ), whole, format, pixels, rect,
                                      GRectIntersect( clip, rect ), GIC_PREMULTIPLIED );
    if( touched ) *touched = GRectUnion( *touched, changed );
    return _textHeight;
}
