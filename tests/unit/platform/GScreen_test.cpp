#include "platform/GScreen.h"

#include "libvorn/src/platform/common/GScreenPixels.h"
#include "platform/GNull.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <cstring>

namespace
{
constexpr GRect WHOLE = { 0, 0, 0x7FFFFFFF, 0x7FFFFFFF };

// A screen of 8x6 pixels that a test has drawn.
class GScreenCommon : public testing::Test
{
protected:
    void SetUp( ) override
    {
        drawn.format = { GIT_BGR24, 8, 6 };
        drawn.pixels.assign( 8 * 6 * 3, 'a' );
        GNullSetScreen( &drawn );
        screen = GScreenOpen( );
    }
    void TearDown( ) override
    {
        GScreenClose( screen );
        GNullSetScreen( nullptr );
    }
    void add( uint32_t id, const GRect& rect, const std::vector<GRect>& children = { }, const GWString& title = { } )
    {
        drawn.windows.push_back( { id, rect, title, children } );
    }
    void getLayout( ) { GScreenGetLayout( screen, layout, regions ); }
    std::map<uint32_t, GWString> getList( )
    {
        std::map<uint32_t, GWString> list = { { 99, u"left over" } };
        GScreenGetWindowList( &list );
        return list;
    }

    GNullScreen drawn;
    GScreen screen = nullptr;
    GImageFormat format;
    GFragList layout;
    std::map<uint32_t, GFragList> regions;
};
using GScreenDeath = GScreenCommon;

TEST_F( GScreenCommon, PartialCaptureKeepsTheRest )
{
    const char* buffer = GScreenCapture( screen, WHOLE, format );
    ASSERT_TRUE( buffer );
    EXPECT_EQ( drawn.format, format );
    drawn.pixels.assign( drawn.pixels.size( ), 'b' );
    buffer = GScreenCapture( screen, { 2, 1, 4, 100 }, format );
    EXPECT_EQ( "aaaaaaaaaaaaaaaaaaaaaaaa", GString( buffer, 24 ) );
    EXPECT_EQ( "aaaaaabbbbbbaaaaaaaaaaaa", GString( buffer + 24, 24 ) );
    EXPECT_EQ( "aaaaaabbbbbbaaaaaaaaaaaa", GString( buffer + 24 * 5, 24 ) );
    EXPECT_EQ( 2, drawn.captures );
}

TEST_F( GScreenCommon, DamageIsToldOnceAndTheWholeScreenFirst )
{
    std::vector<GRect> rects = { { 9, 9, 9, 9 } };
    drawn.damage = { { 1, 1, 2, 2 } };
    EXPECT_TRUE( GScreenWaitForDamage( screen, 0 ) );
    EXPECT_TRUE( GScreenGetDamage( screen, rects ) );
    EXPECT_EQ( ( std::vector<GRect>{ { 0, 0, 8, 6 } } ), rects );
    EXPECT_FALSE( GScreenWaitForDamage( screen, 0 ) );
    EXPECT_TRUE( GScreenGetDamage( screen, rects ) );
    EXPECT_TRUE( rects.empty( ) );
    drawn.damage = { { 1, 1, 2, 2 } };
    EXPECT_TRUE( GScreenWaitForDamage( screen, 0 ) );
    EXPECT_TRUE( GScreenGetDamage( screen, rects ) );
    EXPECT_EQ( ( std::vector<GRect>{ { 1, 1, 2, 2 } } ), rects );
    drawn.tellsDamage = false;
    EXPECT_FALSE( GScreenGetDamage( screen, rects ) );
    EXPECT_TRUE( rects.empty( ) );
    EXPECT_FALSE( GScreenWaitForDamage( screen, 0 ) );
}

TEST_F( GScreenCommon, WithoutADisplayThereIsNothing )
{
    GNullSetScreen( nullptr );
    int x = 7;
    int y = 8;
    format = { GIT_BGRA32, 1, 1 };
    layout.push_back( { 1, {} } );
    regions[1] = { };
    EXPECT_FALSE( GScreenCapture( screen, WHOLE, format ) );
    EXPECT_EQ( GImageFormat( ), format );
    getLayout( );
    EXPECT_TRUE( layout.empty( ) );
    EXPECT_TRUE( regions.empty( ) );
    EXPECT_TRUE( getList( ).empty( ) );
    EXPECT_FALSE( GScreenRaiseWindow( 1 ) );
    EXPECT_FALSE( GScreenGetPointerPosition( x, y ) );
    EXPECT_FALSE( GScreenSetPointerPosition( 1, 1 ) );
    EXPECT_EQ( 7, x );
    EXPECT_EQ( 8, y );
}

TEST_F( GScreenCommon, LayoutHoldsWhatOverlapsTheScreenAndKeepsWholeRectangles )
{
    add( 10, { -5, -5, 1, 1 } );
    add( 11, { 8, 0, 12, 6 } );
    add( 12, { 0, 6, 8, 9 } );
    add( 13, { 3, 3, 3, 5 } );
    add( 14, { -9, 0, 0, 6 } );
    add( 15, { 7, 5, 20, 20 } );
    getLayout( );
    EXPECT_EQ( ( GFragList{ { 10, { -5, -5, 1, 1 } }, { 15, { 7, 5, 20, 20 } }, { 0xFFFFFFFF, { 0, 0, 8, 6 } } } ),
               layout );
    EXPECT_EQ( 3U, regions.size( ) );
}

TEST_F( GScreenCommon, RegionsAreChildrenFirstAndThenTheRest )
{
    add( 10, { 1, 1, 7, 5 },
         { { 0, 0, 2, 2 }, { 1, 0, 3, 1 }, { 5, 3, 50, 50 }, { 6, 0, 9, 4 }, { 3, 3, 3, 9 }, { 4, 4, 4, 2 } } );
    getLayout( );
    const GFragList wanted = { { 10, { 0, 0, 2, 2 } }, { 10, { 2, 0, 3, 1 } }, { 10, { 5, 3, 6, 4 } } };
    GFragList got = regions[10];
    ASSERT_LE( wanted.size( ), got.size( ) );
    EXPECT_EQ( wanted, GFragList( got.begin( ), std::next( got.begin( ), 3 ) ) );
    int area = 0;
    for( const GFrag& frag : got ) area += frag.rect.width( ) * frag.rect.height( );
    EXPECT_EQ( 6 * 4, area );
}

TEST_F( GScreenCommon, CountsAreBounded )
{
    std::vector<GRect> children;
    for( int i = 0; i < 5000; ++i )
        children.push_back( { i % 100 * 2, i / 100 * 2, i % 100 * 2 + 1, i / 100 * 2 + 1 } );
    add( 1, { 0, 0, 300, 300 }, children );
    for( uint32_t id = 2; id < 5000; ++id ) add( id, { 0, 0, 2, 2 }, { }, u"Many" );
    getLayout( );
    EXPECT_EQ( 1024U, layout.size( ) );
    EXPECT_LT( regions[1].size( ), 300U );
    EXPECT_EQ( 1024U, getList( ).size( ) );
}

TEST_F( GScreenCommon, ListHoldsTheTitledWindowsOnTheScreen )
{
    add( 10, { 0, 0, 2, 2 }, { }, u"Letter" );
    add( 11, { 0, 0, 2, 2 } );
    add( 12, { 0, 0, 2, 2 }, { }, u"Program Manager" );
    add( 13, { 8, 8, 9, 9 }, { }, u"Far away" );
    add( 14, { 0, 0, 0, 9 }, { }, u"Thin" );
    add( 15, { -3, 0, 1, 1 }, { }, u"Corner" );
    EXPECT_EQ( ( std::map<uint32_t, GWString>{ { 10, u"Letter" }, { 15, u"Corner" } } ), getList( ) );
}

TEST_F( GScreenCommon, TitlesAreCleanedAndBounded )
{
    add( 10, { 0, 0, 2, 2 }, { }, u"a\u001B\nb\u007F\u0085c" );
    add( 11, { 0, 0, 2, 2 }, { }, GWString( 255, u'x' ) + u"\U0001F600" );
    add( 12, { 0, 0, 2, 2 }, { }, u"\t\r\n" );
    const auto list = getList( );
    EXPECT_EQ( u"abc", list.at( 10 ) );
    EXPECT_EQ( GWString( 255, u'x' ), list.at( 11 ) );
    EXPECT_EQ( 0U, list.count( 12 ) );
}

TEST_F( GScreenCommon, WindowsAreRaisedByNumber )
{
    add( 10, { 0, 0, 2, 2 } );
    EXPECT_TRUE( GScreenRaiseWindow( 10 ) );
    EXPECT_EQ( 10U, drawn.raised );
    EXPECT_FALSE( GScreenRaiseWindow( 11 ) );
    EXPECT_FALSE( GScreenRaiseWindow( 0 ) );
    EXPECT_EQ( 10U, drawn.raised );
}

TEST_F( GScreenDeath, RectanglesMustBeValid )
{
    EXPECT_DEATH( GScreenCapture( screen, { 1, 0, 0, 0 }, format ),
                  "Precondition failed, aborting. \\(GVALIDRECT\\( dirtyRect_ \\)" );
    EXPECT_DEATH( GScreenCapture( screen, { 0, 1, 0, 0 }, format ), "GVALIDRECT\\( dirtyRect_ \\)" );
}

TEST_F( GScreenDeath, TheListMustBeThere )
{
    EXPECT_DEATH( GScreenGetWindowList( nullptr ), "Precondition failed, aborting. \\(windowIDNameMap\\)" );
}

class GScreenPixelKinds : public testing::Test
{
protected:
    // `value` as `bytes` bytes of a display, told as the capture has it, lowest byte first.
    static uint32_t convert( const GScreenPixels* pixels, uint32_t value )
    {
        uint32_t in[4] = { };
        uint32_t out[4] = { 0x11111111 };
        std::memcpy( reinterpret_cast<char*>( in ), &value, 4 );
        if( pixels ) pixels->convert( reinterpret_cast<const char*>( in ), reinterpret_cast<char*>( out ), 1 );
        return out[0];
    }
};

TEST_F( GScreenPixelKinds, EachGivesItsTypeAndColours )
{
    const GScreenPixels* kind = GScreenFindPixels( 32, 0xFF0000, 0xFF00, 0xFF );
    ASSERT_TRUE( kind );
    EXPECT_EQ( GIT_BGRA32, kind->type );
    EXPECT_EQ( 0xFF123456, convert( kind, 0x00123456 ) );
    EXPECT_EQ( 0xFF123456, convert( kind, 0x99123456 ) );
    kind = GScreenFindPixels( 32, 0xFF, 0xFF00, 0xFF0000 );
    ASSERT_TRUE( kind );
    EXPECT_EQ( GIT_BGRA32, kind->type );
    EXPECT_EQ( 0xFF563412, convert( kind, 0x77123456 ) );
    kind = GScreenFindPixels( 32, 0x3FF00000, 0xFFC00, 0x3FF );
    ASSERT_TRUE( kind );
    EXPECT_EQ( GIT_BGRA32, kind->type );
    EXPECT_EQ( 0xFF123456, convert( kind, 0x12U << 22 | 3U << 20 | 0x34U << 12 | 1U << 10 | 0x56U << 2 | 2U ) );
    kind = GScreenFindPixels( 24, 0xFF0000, 0xFF00, 0xFF );
    ASSERT_TRUE( kind );
    EXPECT_EQ( GIT_BGR24, kind->type );
    EXPECT_EQ( 0x11123456U, convert( kind, 0x123456 ) );
    kind = GScreenFindPixels( 24, 0xFF, 0xFF00, 0xFF0000 );
    ASSERT_TRUE( kind );
    EXPECT_EQ( GIT_BGR24, kind->type );
    EXPECT_EQ( 0x11563412U, convert( kind, 0x123456 ) );
    kind = GScreenFindPixels( 16, 0x7C00, 0x3E0, 0x1F );
    ASSERT_TRUE( kind );
    EXPECT_EQ( GIT_RGB555, kind->type );
    EXPECT_EQ( 0x11116543U, convert( kind, 0xE543 ) );
    kind = GScreenFindPixels( 16, 0xF800, 0x7E0, 0x1F );
    ASSERT_TRUE( kind );
    EXPECT_EQ( GIT_RGB555, kind->type );
    EXPECT_EQ( 0x11110000U | 3U << 10 | 17U << 5 | 9U, convert( kind, 3U << 11 | 35U << 5 | 9U ) );
}

TEST_F( GScreenPixelKinds, AllOthersAreUnknown )
{
    EXPECT_FALSE( GScreenFindPixels( 8, 0, 0, 0 ) );
    EXPECT_FALSE( GScreenFindPixels( 16, 0x1F, 0x7E0, 0xF800 ) );
    EXPECT_FALSE( GScreenFindPixels( 24, 0xFF0000, 0xFF00, 0xFE ) );
    EXPECT_FALSE( GScreenFindPixels( 32, 0, 0, 0 ) );
    EXPECT_FALSE( GScreenFindPixels( 64, 0xFF0000, 0xFF00, 0xFF ) );
}

TEST_F( GScreenPixelKinds, RowsAreCopiedWithinTheirRectangle )
{
    const GScreenPixels* kind = GScreenFindPixels( 16, 0x7C00, 0x3E0, 0x1F );
    ASSERT_TRUE( kind );
    const char from[] = "abcd..efgh..";
    char to[] = "0123456789ABCDEF";
    GScreenCopyRows( *kind, from, 6, to + 2, 8, 2, 2 );
    EXPECT_STREQ( "01abcd6789efghEF", to );
}
} // namespace
