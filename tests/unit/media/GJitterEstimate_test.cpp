#include "client/media/GJitterEstimate.h"

#include "support/CountAllocations.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{
constexpr int64_t MILLISECOND = 1000;
constexpr int64_t PACKET = 20 * MILLISECOND;
constexpr uint64_t BEGIN = 13000000000000000ULL;

class GJitterEstimateTest : public testing::Test
{
protected:
    // The next packet, which takes that long.
    void add( int64_t takes )
    {
        estimate.add( BEGIN + static_cast<uint64_t>( media + takes ), media );
        media += PACKET;
    }
    GJitterEstimate estimate;
    int64_t media = 0;
};
} // namespace

TEST_F( GJitterEstimateTest, EvenPacketsHaveNone )
{
    for( int i = 0; i < 1000; ++i ) add( 70 * MILLISECOND );
    EXPECT_EQ( 0, estimate.getJitter( ) );
    EXPECT_EQ( static_cast<int64_t>( BEGIN ) + 70 * MILLISECOND, estimate.getBase( ) );
}

TEST_F( GJitterEstimateTest, OneLatePacketInAHundredDoesNotCount )
{
    for( int i = 0; i < 1000; ++i ) add( i % 100 == 99 ? 200 * MILLISECOND : 0 );
    EXPECT_LT( estimate.getJitter( ), 5 * MILLISECOND );
    for( int i = 0; i < 1000; ++i ) add( i % 20 == 19 ? 200 * MILLISECOND : 0 );
    EXPECT_EQ( 200 * MILLISECOND, estimate.getJitter( ) );
}

TEST_F( GJitterEstimateTest, RisesWithinAFewPacketsAndFallsInSeconds )
{
    for( int i = 0; i < 100; ++i ) add( 0 );
    for( int i = 0; i < 20; ++i ) add( 120 * MILLISECOND );
    EXPECT_EQ( 120 * MILLISECOND, estimate.getJitter( ) );
    for( int i = 0; i < 300; ++i ) add( 0 );
    EXPECT_GE( estimate.getJitter( ), 100 * MILLISECOND ) << "six seconds later";
    for( int i = 0; i < 600; ++i ) add( 0 );
    EXPECT_EQ( 0, estimate.getJitter( ) );
}

TEST_F( GJitterEstimateTest, BaseFollowsTheSendersClock )
{
    for( const int ppm : { 200, -200 } )
    {
        for( int i = 0; i < 50000; ++i ) add( i * PACKET * ppm / 1000000 );
        EXPECT_LE( estimate.getJitter( ), 4 * MILLISECOND ) << ppm;
        estimate.restart( );
    }
}

TEST_F( GJitterEstimateTest, HoldUpBeyondAnyBufferIsNoJitter )
{
    for( int i = 0; i < 600; ++i ) add( 0 );
    for( int i = 0; i < 100; ++i )
    {
        add( ( 99 - i ) * PACKET );
        EXPECT_EQ( i < 99, estimate.isStalled( ) ) << i;
    }
    EXPECT_LE( estimate.getJitter( ), 20 * MILLISECOND );
}

TEST_F( GJitterEstimateTest, WayThatStaysLongIsTheWay )
{
    for( int i = 0; i < 600; ++i ) add( 0 );
    for( int i = 0; i < 60; ++i ) add( 3000 * MILLISECOND );
    EXPECT_FALSE( estimate.isStalled( ) );
    EXPECT_EQ( static_cast<int64_t>( BEGIN ) + 3000 * MILLISECOND, estimate.getBase( ) );
    EXPECT_EQ( 0, estimate.getJitter( ) );
}

TEST_F( GJitterEstimateTest, ClockThatIsSetBackIsAnotherBase )
{
    for( int i = 0; i < 600; ++i ) add( 0 );
    for( int i = 0; i < 10; ++i ) add( -3600000 * MILLISECOND );
    EXPECT_EQ( 0, estimate.getJitter( ) );
    EXPECT_EQ( static_cast<int64_t>( BEGIN ) - 3600000 * MILLISECOND, estimate.getBase( ) );
}

TEST_F( GJitterEstimateTest, AnotherTalkKeepsTheJitterWithAnotherBase )
{
    for( int i = 0; i < 600; ++i ) add( i % 10 * 10 * MILLISECOND );
    media = 12345;
    estimate.restart( );
    EXPECT_EQ( 90 * MILLISECOND, estimate.getJitter( ) );
    add( 5000 * MILLISECOND );
    EXPECT_EQ( 90 * MILLISECOND, estimate.getJitter( ) );
    EXPECT_EQ( static_cast<int64_t>( BEGIN ) + 5000 * MILLISECOND, estimate.getBase( ) );
}

TEST_F( GJitterEstimateTest, TakesNothingFromTheHeap )
{
    EXPECT_LE( countAllocations(
                   [&]
                   {
                       for( int i = 0; i < 1000; ++i ) add( i % 7 * MILLISECOND );
                   } ),
               0 );
}
