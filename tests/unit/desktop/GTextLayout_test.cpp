#include "platform/GTextLayout.h"

#include "base/GUtil.h"

#include "unit/desktop/DesktopFixture.h"

#include <algorithm>

namespace
{
class GTextLayoutTest : public DesktopFixture
{
protected:
    void SetUp( ) override
    {
        DesktopFixture::SetUp( );
        GTextFont font;
        font.face = u"DejaVu Sans";
        text = GTextOpen( font );
    }
    void TearDown( ) override
    {
        if( layout ) GTextLayoutClose( layout );
        GTextClose( text );
    }
    void open( const GWString& string, int flags = 0, int width = 0 )
    {
        if( layout ) GTextLayoutClose( layout );
        layout = GTextLayoutOpen( text, string, flags, width );
    }
    int caretX( size_t index )
    {
        int x = 0;
        int y = 0;
        GTextLayoutGetCaret( layout, index, x, y );
        return x;
    }
    int caretLine( size_t index )
    {
        int x = 0;
        int y = 0;
        GTextLayoutGetCaret( layout, index, x, y );
        return y / GTextGetHeight( text );
    }
    size_t step( size_t from, GTextStep kind ) { return GTextLayoutStep( layout, from, kind ); }

    GText text = nullptr;
    GTextLayout layout = nullptr;
};

constexpr GWStringView HEBREW = u"\u05D0\u05D1\u05D2";
} // namespace

TEST_F( GTextLayoutTest, ACaretStandsBetweenTheLettersAndAPointFindsItAgain )
{
    open( u"abcd" );
    EXPECT_EQ( 0, caretX( 0 ) );
    for( size_t i = 0; i < 4; ++i )
    {
        EXPECT_LT( caretX( i ), caretX( i + 1 ) );
        EXPECT_EQ( i, GTextLayoutHit( layout, caretX( i ), 3 ) );
    }
    int width = 0;
    int height = 0;
    GTextLayoutGetSize( layout, width, height );
    EXPECT_NEAR( width, caretX( 4 ), 1 );
    EXPECT_EQ( GTextGetHeight( text ), height );
    EXPECT_EQ( 4u, GTextLayoutHit( layout, 10000, 50 ) );
    EXPECT_EQ( 0u, GTextLayoutHit( layout, -50, -50 ) );
    EXPECT_EQ( caretX( 4 ), caretX( 400 ) );
}

TEST_F( GTextLayoutTest, GraphemesAreNeverSplit )
{
    // A combining accent, a pair of surrogates, and a family joined of three.
    open( u"e\u0301\U0001F600\U0001F468\u200D\U0001F469\u200D\U0001F467x" );
    EXPECT_EQ( 2u, step( 0, GSTEP_NEXT ) );
    EXPECT_EQ( 4u, step( 2, GSTEP_NEXT ) );
    EXPECT_EQ( 12u, step( 4, GSTEP_NEXT ) );
    EXPECT_EQ( 4u, step( 12, GSTEP_PREVIOUS ) );
    EXPECT_EQ( 0u, step( 2, GSTEP_LEFT ) );
    EXPECT_EQ( 13u, step( 13, GSTEP_NEXT ) );
    EXPECT_EQ( 0u, step( 0, GSTEP_PREVIOUS ) );
}

TEST_F( GTextLayoutTest, WordsAreSteppedOverAndFound )
{
    open( u"one two, three" );
    EXPECT_EQ( 4u, step( 0, GSTEP_NEXT_WORD ) );
    EXPECT_EQ( 4u, step( 6, GSTEP_PREVIOUS_WORD ) );
    size_t begin = 0;
    size_t end = 0;
    GTextLayoutGetWord( layout, 5, begin, end );
    EXPECT_EQ( 4u, begin );
    EXPECT_EQ( 7u, end );
    GTextLayoutGetWord( layout, 14, begin, end );
    EXPECT_EQ( 9u, begin );
    EXPECT_EQ( 14u, end );
}

TEST_F( GTextLayoutTest, RightToLeftTextIsFollowedAsItIsSeen )
{
    open( GWString( HEBREW ), 0, 200 );
    EXPECT_EQ( 200, caretX( 0 ) );
    EXPECT_LT( caretX( 3 ), caretX( 1 ) );
    EXPECT_EQ( 1u, step( 0, GSTEP_LEFT ) );
    EXPECT_EQ( 0u, step( 1, GSTEP_RIGHT ) );
    EXPECT_EQ( 1u, step( 0, GSTEP_NEXT ) );
}

TEST_F( GTextLayoutTest, LinesBreakAtTheirEndsAndAtTheWidth )
{
    open( u"ab\ncd", GTEXT_WORDBREAK, 200 );
    EXPECT_EQ( 0, caretLine( 2 ) );
    EXPECT_EQ( 1, caretLine( 3 ) );
    EXPECT_EQ( 0, caretX( 3 ) );
    EXPECT_EQ( 2u, step( 0, GSTEP_LINE_END ) );
    EXPECT_EQ( 3u, step( 5, GSTEP_LINE_START ) );
    EXPECT_EQ( 5u, step( 3, GSTEP_LINE_END ) );
    EXPECT_EQ( 2u, GTextLayoutHit( layout, 150, 2 ) );
    EXPECT_EQ( 5u, GTextLayoutHit( layout, 150, 1000 ) );
    open( u"one two three four five six", GTEXT_WORDBREAK, 60 );
    int width = 0;
    int height = 0;
    GTextLayoutGetSize( layout, width, height );
    EXPECT_GT( height, 2 * GTextGetHeight( text ) );
    EXPECT_LE( width, 60 );
    open( u"ab\ncd" );
    EXPECT_EQ( 0, caretLine( 5 ) );
}

TEST_F( GTextLayoutTest, SpansCoverASelectionInEachLineAndDirection )
{
    std::vector<GRect> spans;
    open( u"abcd" );
    GTextLayoutGetSpans( layout, 1, 3, spans );
    ASSERT_EQ( 1u, spans.size( ) );
    EXPECT_EQ( ( GRect{ caretX( 1 ), 0, caretX( 3 ), GTextGetHeight( text ) } ), spans[0] );
    GTextLayoutGetSpans( layout, 2, 2, spans );
    EXPECT_TRUE( spans.empty( ) );
    open( u"ab\ncd", GTEXT_WORDBREAK, 100 );
    GTextLayoutGetSpans( layout, 1, 4, spans );
    ASSERT_EQ( 2u, spans.size( ) );
    EXPECT_EQ( GTextGetHeight( text ), spans[1].top );
    // Half of the Hebrew word and what stands before it are two places.
    open( GConcat( u"ab ", HEBREW ) );
    GTextLayoutGetSpans( layout, 1, 4, spans );
    EXPECT_EQ( 2u, spans.size( ) );
}

TEST_F( GTextLayoutTest, APartOfItIsDrawn )
{
    open( u"WWWWWWWW" );
    std::vector<uint8_t> coverage( 20 * 30, 77 );
    GTextLayoutDraw( layout, caretX( 4 ), 0, 20, 30, coverage.data( ), 20 );
    EXPECT_GT( *std::max_element( coverage.begin( ), coverage.end( ) ), 200 );
    GTextLayoutDraw( layout, caretX( 8 ) + 5, 0, 20, 30, coverage.data( ), 20 );
    EXPECT_EQ( 0, *std::max_element( coverage.begin( ), coverage.end( ) ) );
}

TEST_F( GTextLayoutTest, AnEmptyTextHasOnePlace )
{
    open( u"", GTEXT_WORDBREAK, 100 );
    EXPECT_EQ( 0, caretX( 0 ) );
    EXPECT_EQ( 0u, GTextLayoutHit( layout, 50, 5 ) );
    for( const GTextStep kind : { GSTEP_LEFT, GSTEP_NEXT, GSTEP_NEXT_WORD, GSTEP_LINE_START, GSTEP_LINE_END } )
        EXPECT_EQ( 0u, step( 0, kind ) );
    size_t begin = 1;
    size_t end = 1;
    GTextLayoutGetWord( layout, 0, begin, end );
    EXPECT_EQ( 0u, end );
    std::vector<GRect> spans;
    GTextLayoutGetSpans( layout, 0, 5, spans );
    EXPECT_TRUE( spans.empty( ) );
}

TEST_F( GTextLayoutTest, AFloodOfTextIsCut )
{
    open( GWString( 200000, u'x' ) );
    EXPECT_EQ( 65536u, GTextLayoutHit( layout, INT32_MAX / 2, 0 ) );
}
