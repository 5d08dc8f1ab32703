#include "platform/GTextLayout.h"

#include "base/GPortable.h"
#include "platform/text/GText_Qt.h"

#include <QGlyphRun>
#include <QImage>
#include <QPainter>
#include <QTextBoundaryFinder>
#include <QTextLayout>

#include <algorithm>
#include <cmath>

struct GTextLayoutRecord
{
    QTextLayout layout;
    int lineHeight = 1;
    double width = 0;
    QImage page; // Only grows.

    int getLength( ) const { return static_cast<int>( layout.text( ).size( ) ); }
    int hold( size_t index ) const { return static_cast<int>( std::min<size_t>( index, layout.text( ).size( ) ) ); }
    int lineAt( int index ) const
    {
        const QTextLine line = layout.lineForTextPosition( index );
        return line.isValid( ) ? line.lineNumber( ) : 0;
    }
};

namespace
{
constexpr size_t MOST_UNITS = 65536;
constexpr int MOST_WIDTH = 1 << 20;

// Unit for unit, so that indexes stay what they are.
QString prepare( const GWString& string, bool severalLines )
{
    QString text =
        QString::fromUtf16( string.data( ), static_cast<qsizetype>( std::min( string.size( ), MOST_UNITS ) ) );
    text.replace( u'\n', severalLines ? QChar( QChar::LineSeparator ) : QChar( u' ' ) );
    return text.replace( u'\r', u' ' ).replace( u'\t', u' ' );
}

void breakLines( GTextLayoutRecord& record, bool severalLines, int width )
{
    QTextLayout& layout = record.layout;
    layout.beginLayout( );
    for( int i = 0;; ++i )
    {
        QTextLine line = layout.createLine( );
        if( !line.isValid( ) ) break;
        line.setLineWidth( severalLines && width > 0 ? width : MOST_WIDTH );
        const double room = width - line.naturalTextWidth( );
        const bool fromRight = layout.text( ).isRightToLeft( ) && room > 0;
        line.setPosition( { fromRight ? room : 0, static_cast<double>( i ) * record.lineHeight } );
        record.width = std::max( record.width, line.naturalTextWidth( ) + ( fromRight ? room : 0 ) );
    }
    layout.endLayout( );
}

void joinNeighbours( std::vector<GRect>& spans, size_t begun )
{
    const auto from = spans.begin( ) + static_cast<ptrdiff_t>( begun );
    std::sort( from, spans.end( ), []( const GRect& a, const GRect& b ) { return a.left < b.left; } );
    auto last = from;
    for( auto it = from; it != spans.end( ); ++it )
    {
        if( it == from ) continue;
        if( it->left <= last->right )
            last->right = std::max( last->right, it->right );
        else
            *++last = *it;
    }
    if( from != spans.end( ) ) spans.erase( last + 1, spans.end( ) );
}
} // namespace

GTextLayout GTextLayoutOpen( GText text, const GWString& string, int flags, int width )
{
    GPRECONDITION( text );
    const bool severalLines = flags & GTEXT_WORDBREAK;
    auto* record = new GTextLayoutRecord;
    record->lineHeight = std::max( 1, text->metrics.height( ) );
    record->layout.setText( prepare( string, severalLines ) );
    record->layout.setFont( text->font );
    QTextOption option( Qt::AlignLeft | Qt::AlignAbsolute );
    option.setWrapMode( severalLines && width > 0 ? QTextOption::WrapAtWordBoundaryOrAnywhere : QTextOption::NoWrap );
    if( !severalLines ) option.setFlags( QTextOption::IncludeTrailingSpaces );
    option.setTextDirection( Qt::LayoutDirectionAuto );
    record->layout.setTextOption( option );
    record->layout.setCacheEnabled( true );
    breakLines( *record, severalLines, width );
    return record;
}

void GTextLayoutClose( GTextLayout layout )
{
    GPRECONDITION( layout );
    delete layout;
}

void GTextLayoutGetSize( GTextLayout layout, int& width, int& height )
{
    GPRECONDITION( layout );
    width = static_cast<int>( std::ceil( layout->width ) );
    height = std::max( 1, layout->layout.lineCount( ) ) * layout->lineHeight;
}

void GTextLayoutGetCaret( GTextLayout layout, size_t index, int& x, int& y )
{
    GPRECONDITION( layout );
    const int at = layout->hold( index );
    const int number = layout->lineAt( at );
    const QTextLine line = layout->layout.lineAt( number );
    x = line.isValid( ) ? static_cast<int>( std::lround( line.cursorToX( at ) ) ) : 0;
    y = number * layout->lineHeight;
}

size_t GTextLayoutHit( GTextLayout layout, int x, int y )
{
    GPRECONDITION( layout );
    const int number = std::clamp( y / layout->lineHeight, 0, std::max( 0, layout->layout.lineCount( ) - 1 ) );
    const QTextLine line = layout->layout.lineAt( y < 0 ? 0 : number );
    if( !line.isValid( ) ) return 0;
    // Beyond this the toolkit's numbers overflow.
    int at = line.xToCursor( std::clamp( x, -MOST_WIDTH, MOST_WIDTH ), QTextLine::CursorBetweenCharacters );
    // Behind the separator the next line begins.
    const int end = line.textStart( ) + line.textLength( );
    if( at == end && at > line.textStart( ) && line.lineNumber( ) + 1 < layout->layout.lineCount( ) )
        at = layout->layout.previousCursorPosition( at );
    return static_cast<size_t>( std::clamp( at, 0, layout->getLength( ) ) );
}

size_t GTextLayoutStep( GTextLayout layout, size_t index, GTextStep step )
{
    GPRECONDITION( layout );
    const QTextLayout& text = layout->layout;
    const int at = layout->hold( index );
    const QTextLine line = text.lineAt( layout->lineAt( at ) );
    const bool last = !line.isValid( ) || line.lineNumber( ) + 1 >= text.lineCount( );
    int to = at;
    switch( step )
    {
    case GSTEP_LEFT: to = text.leftCursorPosition( at ); break;
    case GSTEP_RIGHT: to = text.rightCursorPosition( at ); break;
    case GSTEP_PREVIOUS: to = text.previousCursorPosition( at ); break;
    case GSTEP_NEXT: to = text.nextCursorPosition( at ); break;
    case GSTEP_PREVIOUS_WORD: to = text.previousCursorPosition( at, QTextLayout::SkipWords ); break;
    case GSTEP_NEXT_WORD: to = text.nextCursorPosition( at, QTextLayout::SkipWords ); break;
    case GSTEP_LINE_START: to = line.isValid( ) ? line.textStart( ) : 0; break;
    case GSTEP_LINE_END:
        to = line.isValid( ) ? line.textStart( ) + line.textLength( ) : 0;
        if( !last ) to = text.previousCursorPosition( to );
        break;
    }
    return static_cast<size_t>( std::clamp( to, 0, layout->getLength( ) ) );
}

void GTextLayoutGetWord( GTextLayout layout, size_t index, size_t& begin, size_t& end )
{
    GPRECONDITION( layout );
    const int at = layout->hold( index );
    QTextBoundaryFinder finder( QTextBoundaryFinder::Word, layout->layout.text( ) );
    finder.setPosition( at );
    if( !finder.isAtBoundary( ) || at == layout->getLength( ) ) finder.toPreviousBoundary( );
    begin = static_cast<size_t>( std::max<qsizetype>( 0, finder.position( ) ) );
    const qsizetype next = finder.toNextBoundary( );
    end = next < 0 ? static_cast<size_t>( layout->getLength( ) ) : static_cast<size_t>( next );
}

void GTextLayoutGetSpans( GTextLayout layout, size_t begin, size_t end, std::vector<GRect>& spans )
{
    GPRECONDITION( layout );
    spans.clear( );
    const int from = layout->hold( begin );
    const int to = layout->hold( end );
    for( int i = layout->lineAt( from ); from < to && i < layout->layout.lineCount( ); ++i )
    {
        const QTextLine line = layout->layout.lineAt( i );
        if( line.textStart( ) >= to ) break;
        const int top = i * layout->lineHeight;
        const int first = std::max( from, line.textStart( ) );
        const int last = std::min( to, line.textStart( ) + line.textLength( ) );
        const size_t begun = spans.size( );
        // A run of glyphs for each direction and font; neighbours make one rectangle.
        for( const QGlyphRun& run : line.glyphRuns( first, last - first ) )
        {
            const QRectF box = run.boundingRect( );
            spans.push_back( { static_cast<int>( std::lround( box.left( ) ) ), top,
                               static_cast<int>( std::lround( box.right( ) ) ), top + layout->lineHeight } );
        }
        joinNeighbours( spans, begun );
    }
}

void GTextLayoutDraw( GTextLayout layout, int left, int top, int width, int height, uint8_t* coverage, int stride )
{
    GPRECONDITION( layout );
    GPRECONDITION( width > 0 && height > 0 && stride >= width && coverage );
    QImage& page = layout->page;
    if( page.width( ) < width || page.height( ) < height )
        page = QImage( std::max( width, page.width( ) ), std::max( height, page.height( ) ), QImage::Format_RGB32 );
    QPainter painter( &page );
    painter.fillRect( 0, 0, width, height, Qt::white );
    painter.setClipRect( 0, 0, width, height );
    painter.setPen( Qt::black );
    const int first = std::max( 0, top / layout->lineHeight );
    for( int i = first; i < layout->layout.lineCount( ) && i * layout->lineHeight < top + height; ++i )
        layout->layout.lineAt( i ).draw( &painter, QPointF( -left, -top ) );
    painter.end( );
    GTextCoverage( page, width, height, coverage, stride );
}
