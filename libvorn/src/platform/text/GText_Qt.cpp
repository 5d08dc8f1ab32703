#include "platform/text/GText_Qt.h"

#include "base/GForeignText.h"
#include "base/GPortable.h"
#include "platform/desktop/GDesktop_Qt.h"

#include <QFontDatabase>
#include <QPainter>
#include <QTextLayout>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace
{
constexpr size_t MOST_UNITS = 65536;
constexpr int MOST_WIDTH = 1 << 20;

int getLineHeight( const GTextRecord& text )
{
    return std::max( 1, text.metrics.height( ) );
}

bool isLineEnd( char16_t unit )
{
    return ( unit >= u'\n' && unit <= u'\r' ) || unit == 0x0085 || unit == QChar::LineSeparator ||
           unit == QChar::ParagraphSeparator;
}
bool isControl( char16_t unit )
{
    return unit < 0x20 || ( unit >= 0x7F && unit < 0xA0 );
}

// Line ends of all systems become separators that the layout knows, or blanks where all is one line. Other control characters have
// no look.
QString prepare( const GWString& string, bool severalLines )
{
    const GWString shown = GForeignTextIsMarked( string ) ? GForeignTextShown( string ) : GWString( );
    const GWStringView text = GWStringView( shown.empty( ) ? string : shown ).substr( 0, MOST_UNITS );
    QString prepared;
    prepared.reserve( static_cast<qsizetype>( text.size( ) ) );
    for( size_t i = 0; i < text.size( ); ++i )
    {
        const char16_t unit = text[i];
        if( unit == u'\r' && i + 1 < text.size( ) && text[i + 1] == u'\n' ) continue;
        if( isLineEnd( unit ) )
            prepared += severalLines ? QChar( QChar::LineSeparator ) : QChar( u' ' );
        else if( unit == u'\t' )
            prepared += u' ';
        else if( !isControl( unit ) )
            prepared += QChar( unit );
    }
    return prepared;
}

// A text broken into lines, each from x = 0, one below the other.
class Layout
{
public:
    Layout( const GTextRecord& text, const GWString& string, int flags, int wrapWidth )
        : _lineHeight( getLineHeight( text ) )
    {
        const bool severalLines = flags & GTEXT_WORDBREAK;
        QString prepared = prepare( string, severalLines );
        if( !severalLines && ( flags & GTEXT_END_ELLIPSIS ) && wrapWidth > 0 &&
            text.metrics.horizontalAdvance( prepared ) > wrapWidth )
            prepared = text.metrics.elidedText( prepared, Qt::ElideRight, wrapWidth );
        _layout.setText( prepared );
        _layout.setFont( text.font );
        QTextOption option( Qt::AlignLeft | Qt::AlignAbsolute );
        option.setWrapMode( severalLines && wrapWidth > 0 ? QTextOption::WrapAtWordBoundaryOrAnywhere
                                                          : QTextOption::NoWrap );
        // A caret stands behind blanks too; a centred or broken line does not count them.
        if( !severalLines ) option.setFlags( QTextOption::IncludeTrailingSpaces );
        option.setTextDirection( Qt::LayoutDirectionAuto );
        _layout.setTextOption( option );
        _layout.setCacheEnabled( true );
        _break( severalLines && wrapWidth > 0 ? wrapWidth : MOST_WIDTH );
    }

    int getWidth( ) const { return static_cast<int>( std::ceil( _width ) ); }
    int getHeight( ) const { return std::max( 1, _layout.lineCount( ) ) * _lineHeight; }

    void draw( QPainter& painter, int flags, int width, int height ) const
    {
        for( int i = 0; i < _layout.lineCount( ) && i * _lineHeight < height; ++i )
        {
            const QTextLine line = _layout.lineAt( i );
            double x = -line.naturalTextRect( ).left( );
            if( flags & GTEXT_CENTER )
                x += std::floor( ( width - line.naturalTextWidth( ) ) / 2 );
            else if( flags & GTEXT_RIGHT )
                x += std::floor( width - line.naturalTextWidth( ) );
            line.draw( &painter, { x, 0 } );
        }
    }

private:
    void _break( double width )
    {
        _layout.beginLayout( );
        for( int i = 0;; ++i )
        {
            QTextLine line = _layout.createLine( );
            if( !line.isValid( ) ) break;
            line.setLineWidth( width );
            line.setPosition( { 0, static_cast<double>( i ) * _lineHeight } );
            _width = std::max( _width, line.naturalTextWidth( ) );
        }
        _layout.endLayout( );
    }

    const int _lineHeight;
    QTextLayout _layout;
    double _width = 0;
};
} // namespace

GText GTextOpen( const GTextFont& font )
{
    GCALL( function );
    constexpr int MOST_SIZE = 512;
    GDesktopOpen( );
    QFont chosen( GDesktopText( font.face ) );
    chosen.setStyleHint( QFont::SansSerif, font.antialiased ? QFont::PreferAntialias : QFont::NoAntialias );
    chosen.setPixelSize( std::clamp( font.size, 1, MOST_SIZE ) );
    chosen.setWeight( static_cast<QFont::Weight>( std::clamp( font.weight, 1, 1000 ) ) );
    chosen.setItalic( font.italic );
    chosen.setUnderline( font.underline );
    chosen.setStrikeOut( font.strikeOut );
    chosen.setHintingPreference( QFont::PreferFullHinting );
    return new GTextRecord( chosen );
}

void GTextClose( GText text )
{
    GPRECONDITION( text );
    delete text;
}

int GTextGetHeight( GText text )
{
    GPRECONDITION( text );
    return getLineHeight( *text );
}

int GTextGetAscent( GText text )
{
    GPRECONDITION( text );
    return text->metrics.ascent( );
}

void GTextMeasure( GText text, const GWString& string, int flags, int wrapWidth, int& width, int& height )
{
    GPRECONDITION( text );
    // The ellipsis is no part of what a text would take.
    const Layout layout( *text, string, flags & ~GTEXT_END_ELLIPSIS, wrapWidth );
    width = layout.getWidth( );
    height = layout.getHeight( );
}

void GTextCoverage( const QImage& page, int width, int height, uint8_t* coverage, int stride )
{
    for( int y = 0; y < height; ++y )
    {
        const auto* row = reinterpret_cast<const QRgb*>( page.constScanLine( y ) );
        uint8_t* target = coverage + static_cast<ptrdiff_t>( y ) * stride;
        for( int x = 0; x < width; ++x ) target[x] = static_cast<uint8_t>( 255 - qBlue( row[x] ) );
    }
}

int GTextDraw( GText text, const GWString& string, int flags, int width, int height, uint8_t* coverage, int stride )
{
    GPRECONDITION( text );
    GPRECONDITION( width > 0 && height > 0 && stride >= width && coverage );
    const Layout layout( *text, string, flags, width );
    if( text->page.width( ) < width || text->page.height( ) < height )
        text->page = QImage( std::max( width, text->page.width( ) ), std::max( height, text->page.height( ) ),
                             QImage::Format_RGB32 );
    QPainter painter( &text->page );
    // Black on white, so that what is missing of white is the coverage.
    painter.fillRect( 0, 0, width, height, Qt::white );
    painter.setClipRect( 0, 0, width, height );
    painter.setPen( Qt::black );
    layout.draw( painter, flags, width, height );
    painter.end( );
    GTextCoverage( text->page, width, height, coverage, stride );
    return layout.getHeight( );
}

bool GTextAddFontFile( const GWString& path )
{
    GCALL( function );
    GDesktopOpen( );
    return QFontDatabase::addApplicationFont( GDesktopText( path ) ) >= 0;
}

bool GTextHasFace( const GWString& face )
{
    GDesktopOpen( );
    return QFontDatabase::hasFamily( GDesktopText( face ) );
}
