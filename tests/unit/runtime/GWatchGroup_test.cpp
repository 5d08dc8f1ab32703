#include "runtime/GWatchGroup.h"

#include "platform/GWin.h"
#include "support/TestFolder.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{
class GWatchGroupTest : public testing::Test
{
protected:
    static void pump( )
    {
        bool quit = false;
        GWinPostQuit( 0 );
        while( GWinUpdate( quit ) )
        {
        }
    }
    // How many calls the last change of that name led to.
    int callsAfter( GWStringView name )
    {
        calls = 0;
        instance->set( name, ++value );
        pump( );
        return calls;
    }

    std::unique_ptr<GInstance> instance{ GSAFENEW( GInstance, ( u"watch_group_test.ini" ) ) };
    int calls = 0;
    int value = 0;
    std::unique_ptr<GWatchGroup> group = std::make_unique<GWatchGroup>( instance.get( ), [this] { ++calls; } );
};
} // namespace

TEST_F( GWatchGroupTest, EveryNameCallsOnceForEachChangeWhateverOftenItIsNamed )
{
    group->watch( { u"A", u"B", u"A" } );
    EXPECT_EQ( callsAfter( u"A" ), 1 );
    EXPECT_EQ( callsAfter( u"b" ), 1 );
    EXPECT_EQ( callsAfter( u"C" ), 0 );
}

TEST_F( GWatchGroupTest, NewNamesReplaceTheFormer )
{
    group->watch( { u"A", u"B" } );
    group->watch( { u"B", u"C" } );
    EXPECT_EQ( callsAfter( u"A" ), 0 );
    EXPECT_EQ( callsAfter( u"B" ), 1 );
    EXPECT_EQ( callsAfter( u"C" ), 1 );
    group->watch( { } );
    EXPECT_EQ( callsAfter( u"B" ), 0 );
}

TEST_F( GWatchGroupTest, AQueueIsWatchedLikeAValue )
{
    group->watch( { u"Q" } );
    instance->enqueue( u"Q", "item" );
    pump( );
    EXPECT_EQ( calls, 1 );
}

TEST_F( GWatchGroupTest, NothingIsCalledAfterItsEnd )
{
    group->watch( { u"A" } );
    instance->set( u"A", u"on its way" );
    group.reset( );
    EXPECT_EQ( callsAfter( u"A" ), 0 );
}
