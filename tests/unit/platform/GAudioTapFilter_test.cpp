#include "platform/common/GAudioTapFilter.h"

#include "support/CountAllocations.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

namespace
{
constexpr int FRAME_BYTES = 320;

struct Hearer : public IGCaptureAudioListener
{
    Hearer( ) { stamps.reserve( 100 ); }
    void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length ) override
    {
        stamps.push_back( timestamp );
        frequency = format.frequency;
        lastLength = length;
        heard.append( buffer, static_cast<size_t>( length ) );
    }
    std::vector<uint64_t> stamps;
    int frequency = 0;
    int lastLength = 0;
    GString heard;
};

struct GAudioTapFilter : public testing::Test
{
    GAudioTapFilter( )
    {
        tap.configure( { 2, 8000, 1 }, FRAME_BYTES );
        tap.listeners.add( &hearer );
        tap.completeConnect( { 2, 8000, 1 } );
    }
    ~GAudioTapFilter( ) override { tap.listeners.remove( &hearer ); }
    void say( uint64_t microseconds, const GString& bytes )
    {
        GCaptureSample sample;
        sample.hasTime = true;
        sample.time = static_cast<int64_t>( microseconds * 10 );
        sample.data = bytes.data( );
        sample.length = static_cast<int64_t>( bytes.size( ) );
        tap.Transform( sample );
    }
    _GAudioTapFilter tap;
    Hearer hearer;
};
using Stamps = std::vector<uint64_t>;
} // namespace

TEST_F( GAudioTapFilter, OnlyTheConfiguredFormatIsTaken )
{
    EXPECT_TRUE( tap.checkInputType( { 2, 8000, 1 } ) );
    EXPECT_FALSE( tap.checkInputType( { 1, 8000, 1 } ) );
    EXPECT_FALSE( tap.checkInputType( { 2, 22000, 1 } ) );
    EXPECT_FALSE( tap.checkInputType( { 2, 8000, 2 } ) );
}

TEST_F( GAudioTapFilter, SamplesOfAnyLengthBecomeFramesOfOne )
{
    // 16 bytes are a millisecond.
    say( 1000000, GString( 480, 'a' ) );
    EXPECT_EQ( hearer.stamps, ( Stamps{ 1000000 } ) );
    say( 1030000, GString( 159, 'b' ) );
    EXPECT_EQ( hearer.stamps.size( ), 1U );
    say( 1039938, GString( 1, 'b' ) );
    EXPECT_EQ( hearer.stamps.size( ), 2U );
    EXPECT_NEAR( static_cast<double>( hearer.stamps.back( ) ), 1020000, 1 );
    say( 1040000, GString( 960, 'c' ) );
    EXPECT_EQ( hearer.stamps.size( ), 5U );
    EXPECT_EQ( hearer.stamps.back( ), 1080000U );
    EXPECT_EQ( hearer.heard, GString( 480, 'a' ) + GString( 160, 'b' ) + GString( 960, 'c' ) );
    EXPECT_EQ( hearer.lastLength, FRAME_BYTES );
    EXPECT_EQ( hearer.frequency, 8000 );
}

TEST_F( GAudioTapFilter, StampsRiseWhenTheSourceBeginsAgain )
{
    say( 1000000, GString( 640, 'a' ) );
    say( 0, GString( 640, 'a' ) );
    say( 40000, GString( 320, 'a' ) );
    EXPECT_EQ( hearer.stamps, ( Stamps{ 1000000, 1020000, 1040000, 1060000, 1080000 } ) );
}

TEST_F( GAudioTapFilter, RestOfASampleAtTimeZeroBeginsNoEarlier )
{
    say( 0, GString( 319, 'a' ) );
    say( 0, GString( 1, 'a' ) );
    EXPECT_EQ( hearer.stamps, ( Stamps{ 0 } ) );
}

TEST_F( GAudioTapFilter, UnreadableSampleIsDroppedAndToldOnce )
{
    TestLog::expect( "WARNING Failed to get samples, only reporting once.  Error 3" );
    GCaptureSample sample;
    sample.error = 3;
    tap.Transform( sample );
    tap.Transform( sample );
    EXPECT_EQ( TestLog::count( "WARNING Failed to get samples" ), 1 );
    EXPECT_TRUE( hearer.stamps.empty( ) );
}

TEST_F( GAudioTapFilter, NothingIsHeardAfterTheLossOfTheDevice )
{
    EXPECT_TRUE( tap.isConnected( ) );
    tap.disconnect( );
    EXPECT_FALSE( tap.isConnected( ) );
    say( 0, GString( 640, 'a' ) );
    EXPECT_TRUE( hearer.stamps.empty( ) );
}

TEST_F( GAudioTapFilter, FramesAllocateNothingInTheSteadyState )
{
    hearer.heard.reserve( 100000 );
    const GString sample( 500, 'x' );
    for( uint64_t i = 0; i < 4; i++ ) say( i * 31250, sample );
    const auto listen = [&]
    {
        for( uint64_t i = 4; i < 20; i++ ) say( i * 31250, sample );
    };
    EXPECT_EQ( countAllocations( listen ), 0 );
}

TEST( GAudioTapFilterDeathTest, OtherFormatBehindTheConversionIsOurMistake )
{
    _GAudioTapFilter tap;
    tap.configure( { 2, 8000, 1 }, FRAME_BYTES );
    EXPECT_DEATH( tap.completeConnect( { 2, 22000, 1 } ), "pmt.formattype == FORMAT_WaveFormatEx" );
}
