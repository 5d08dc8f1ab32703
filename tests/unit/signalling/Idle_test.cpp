// What a pass of the service takes from the heap when nothing has come and nothing is due.
#include "support/CountAllocations.h"
#include "unit/signalling/TestTalk.h"

namespace
{
class IdleSIPService : public TestTalk
{
protected:
    // The first pass does what is due, and makes the room that later ones keep.
    long countIdlePass( )
    {
        run( SECOND );
        ann.service->pass( 0 );
        return countAllocations( [this] { ann.service->pass( 0 ); } );
    }
    void addAbsentBuddy( )
    {
        ann.command( u"ADDBUDDY", u"a-buddy-who-is-away@example.org" );
        run( SECOND );
        ASSERT_TRUE( ann.service->findBuddy( u"a-buddy-who-is-away@example.org" ) );
    }
};
} // namespace

TEST_F( IdleSIPService, TakesNothingFromTheHeapByTheLetter )
{
    EXPECT_EQ( 0, countIdlePass( ) );
    connect( );
    addAbsentBuddy( );
    EXPECT_EQ( 0, countIdlePass( ) );
}

TEST_F( IdleSIPService, TakesNothingFromTheHeapWithTheRemedy )
{
    beRobust( );
    EXPECT_EQ( 0, countIdlePass( ) );
    connect( );
    addAbsentBuddy( );
    EXPECT_EQ( 0, countIdlePass( ) );
}
