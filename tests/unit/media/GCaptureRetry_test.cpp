#include "client/media/GCaptureRetry.h"

#include <gtest/gtest.h>

namespace
{
constexpr uint64_t SECOND = 1000000;
constexpr uint64_t START = 1000 * SECOND;

// Fails for so long; the seconds at which it was tried.
std::vector<uint64_t> tries( GCaptureRetry& retry, uint64_t from, uint64_t seconds )
{
    std::vector<uint64_t> at;
    for( uint64_t t = from; t <= from + seconds * SECOND; t += SECOND / 2 )
    {
        if( !retry.isDue( t ) ) continue;
        at.push_back( ( t - START ) / SECOND );
        retry.onFailure( t );
    }
    return at;
}
using Seconds = std::vector<uint64_t>;
} // namespace

TEST( GCaptureRetry, PausesGrowAndEnd )
{
    GCaptureRetry retry;
    EXPECT_TRUE( tries( retry, START, 10 ).empty( ) );
    retry.start( u"camera", true, START );
    EXPECT_EQ( tries( retry, START, 1000 ), ( Seconds{ 1, 3, 7, 15, 31, 63 } ) );
}

TEST( GCaptureRetry, WhatIsNotListedIsNotTried )
{
    GCaptureRetry retry;
    retry.start( u"camera", false, START );
    EXPECT_TRUE( tries( retry, START, 100 ).empty( ) );
    retry.onList( true, START + 100 * SECOND );
    EXPECT_EQ( tries( retry, START + 100 * SECOND, 4 ), ( Seconds{ 101, 103 } ) );
    retry.onList( false, START + 104 * SECOND );
    EXPECT_TRUE( tries( retry, START + 104 * SECOND, 100 ).empty( ) );
}

TEST( GCaptureRetry, ComingBackIntoTheListBeginsAnew )
{
    GCaptureRetry retry;
    retry.start( u"camera", true, START );
    EXPECT_EQ( tries( retry, START, 1000 ).size( ), 6U );
    retry.onList( true, START + 1000 * SECOND );
    EXPECT_TRUE( tries( retry, START + 1000 * SECOND, 100 ).empty( ) );
    retry.onList( false, START + 1100 * SECOND );
    retry.onList( true, START + 1200 * SECOND );
    EXPECT_EQ( tries( retry, START + 1200 * SECOND, 3 ), ( Seconds{ 1201, 1203 } ) );
}

TEST( GCaptureRetry, WhatFailsSoonAfterItCameBackGoesOnWithItsPauses )
{
    GCaptureRetry retry;
    uint64_t t = START;
    std::vector<uint64_t> pauses;
    for( int i = 0; i < 20; ++i )
    {
        retry.start( u"camera", true, t );
        uint64_t end = t;
        while( !retry.isDue( end ) && end < t + 1000 * SECOND ) end += SECOND;
        if( !retry.isDue( end ) ) break;
        pauses.push_back( ( end - t ) / SECOND );
        retry.onSuccess( end );
        t = end + SECOND;
    }
    EXPECT_EQ( pauses, ( Seconds{ 1, 2, 4, 8, 16, 32 } ) );
}

TEST( GCaptureRetry, WhatWorkedForLongIsAsGoodAsNew )
{
    GCaptureRetry retry;
    retry.start( u"camera", true, START );
    retry.onFailure( START + SECOND );
    retry.onSuccess( START + 3 * SECOND );
    EXPECT_FALSE( retry.isWaiting( ) );
    retry.start( u"camera", true, START + 100 * SECOND );
    EXPECT_EQ( tries( retry, START + 100 * SECOND, 3 ), ( Seconds{ 101, 103 } ) );
}

TEST( GCaptureRetry, TheRestEndsWithTheNextTry )
{
    GCaptureRetry retry;
    EXPECT_EQ( retry.getRest( START, 5000 ), 5000 );
    retry.start( u"camera", true, START );
    EXPECT_EQ( retry.getRest( START, 5000 ), 1001 );
    EXPECT_EQ( retry.getRest( START + SECOND, 5000 ), 0 );
    retry.onFailure( START + SECOND );
    EXPECT_EQ( retry.getRest( START + SECOND, 500 ), 500 );
    retry.stop( );
    EXPECT_EQ( retry.getRest( START + SECOND, 5000 ), 5000 );
}
