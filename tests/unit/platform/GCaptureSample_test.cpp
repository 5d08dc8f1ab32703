#include "platform/common/GCaptureSample.h"

#include "support/TestClock.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

namespace
{
GCaptureSample at( int64_t time )
{
    GCaptureSample sample;
    sample.hasTime = true;
    sample.time = time;
    return sample;
}
} // namespace

TEST( GCaptureStamps, UnitsOf100nsBecomeMicroseconds )
{
    GCaptureStamps stamps;
    EXPECT_EQ( stamps.read( at( 0 ) ), 0U );
    EXPECT_EQ( stamps.read( at( 1239 ) ), 123U );
}

TEST( GCaptureStamps, MissingTimeIsTheSystemsAndToldOnceUntilItIsBack )
{
    TestClock clock;
    TestLog::expect( "WARNING Failed to get timestamp, only reporting once.  Error 7" );
    TestLog::expect( "WARNING Succeeded getting timestamp after previous failure." );
    GCaptureStamps stamps;
    GCaptureSample missing;
    missing.error = 7;
    for( int i = 0; i < 3; i++ ) EXPECT_EQ( stamps.read( missing ), TestClock::now( ) );
    EXPECT_EQ( TestLog::count( "WARNING Failed to get timestamp" ), 1 );
    EXPECT_EQ( stamps.read( at( 100 ) ), 10U );
    EXPECT_EQ( stamps.read( at( 200 ) ), 20U );
    EXPECT_EQ( TestLog::count( "WARNING Succeeded getting timestamp" ), 1 );
    missing.error = 8;
    TestLog::expect( "Error 8" );
    stamps.read( missing );
}

TEST( GCaptureStamps, StampsGoOnByTheLastIncrementWhenTheTimesBeginAgain )
{
    GCaptureStamps stamps;
    EXPECT_EQ( stamps.next( 1000 ), 1000U );
    EXPECT_EQ( stamps.next( 1140 ), 1140U );
    EXPECT_EQ( stamps.next( 0 ), 1280U ) << "begins again";
    EXPECT_EQ( stamps.next( 150 ), 1430U ) << "the offset stays";
    EXPECT_EQ( stamps.next( 20 ), 1580U ) << "and again, by the newest increment";
    EXPECT_EQ( stamps.next( 30 ), 1590U );
}

TEST( GCaptureStamps, EqualTimesRiseToo )
{
    GCaptureStamps stamps;
    uint64_t last = stamps.next( 0 );
    for( int i = 0; i < 5; i++ )
    {
        const uint64_t stamp = stamps.next( 0 );
        EXPECT_GT( stamp, last );
        last = stamp;
    }
}
