#include "client/media/GVoiceGain.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{
std::vector<int16_t> gained( std::vector<int16_t> samples, int percent )
{
    GVoiceGain( samples.data( ), static_cast<int>( samples.size( ) ), percent );
    return samples;
}
using Samples = std::vector<int16_t>;
} // namespace

TEST( GVoiceGain, HundredPerCentChangesNothing )
{
    EXPECT_EQ( gained( { 0, 1, -1, 32767, -32768 }, 100 ), ( Samples{ 0, 1, -1, 32767, -32768 } ) );
}

TEST( GVoiceGain, SamplesAreMultiplied )
{
    EXPECT_EQ( gained( { 100, -100, 3 }, 50 ), ( Samples{ 50, -50, 1 } ) );
    EXPECT_EQ( gained( { 100, -100, 3 }, 250 ), ( Samples{ 250, -250, 7 } ) );
    EXPECT_EQ( gained( { 100, -100, 3 }, 0 ), ( Samples{ 0, 0, 0 } ) );
}

TEST( GVoiceGain, LoudSamplesAreHeldAndNeverTurnOver )
{
    EXPECT_EQ( gained( { 20000, -20000, 32767, -32768 }, 400 ), ( Samples{ 32767, -32768, 32767, -32768 } ) );
}

TEST( GVoiceGain, WhatIsBeyondItsRangeCountsAsTheNearestOfIt )
{
    EXPECT_EQ( gained( { 10 }, 2147483647 ), ( Samples{ 40 } ) );
    EXPECT_EQ( gained( { 10 }, -5 ), ( Samples{ 0 } ) );
}
