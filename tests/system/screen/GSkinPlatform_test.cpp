// The command language's doors to foreign windows lead to the real desktop.
#include "client/skin/GSkinPlatform.h"
#include "system/screen/ScreenFixture.h"

namespace
{
class GSkinPlatformOnDesktop : public ScreenFixture
{
};

TEST_F( GSkinPlatformOnDesktop, ListsAndRaisesTheWindowsThatCanBeShared )
{
    const GSkinPlatform platform;
    TestWindows windows;
    const uint32_t lower = windows.getTop( windows.open( { 100, 100, 300, 300 }, 0xFF0000, "Letter" ) );
    const uint32_t upper = windows.getTop( windows.open( { 150, 150, 350, 350 }, 0x00FF00, "Drawing" ) );
    std::map<uint32_t, GWString> list = { { 5, u"Left over" } };
    platform.listWindows( list );
    EXPECT_EQ( u"Letter", list[lower] );
    EXPECT_EQ( u"Drawing", list[upper] );
    EXPECT_EQ( 0U, list.count( 5 ) );
    const auto isAbove = [&]( uint32_t window, uint32_t other )
    {
        getLayout( );
        for( const GFrag& frag : layout )
            if( frag.id == window || frag.id == other ) return frag.id == window;
        return false;
    };
    ASSERT_TRUE( awaitUntil( [&] { return isAbove( upper, lower ); } ) );
    platform.raiseWindow( lower );
    EXPECT_TRUE( awaitUntil( [&] { return isAbove( lower, upper ); } ) );
    platform.raiseWindow( 12345 );
}
} // namespace
