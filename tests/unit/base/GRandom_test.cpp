#include "base/GRandom.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

TEST( GRandom, StaysWithinFifteenBitsAndFillsThem )
{
    GRandomSeed( 1 );
    int low = 32767;
    int high = 0;
    for( int i = 0; i < 100000; ++i )
    {
        const int value = GRandom( );
        ASSERT_GE( value, 0 );
        ASSERT_LE( value, 32767 );
        low = std::min( low, value );
        high = std::max( high, value );
    }
    EXPECT_LT( low, 100 );
    EXPECT_GT( high, 32667 );
}
TEST( GRandom, SeedReplaysARun )
{
    const auto run = []( uint32_t seed )
    {
        GRandomSeed( seed );
        std::vector<int> values( 20 );
        for( int& value : values ) value = GRandom( );
        return values;
    };
    EXPECT_EQ( run( 7 ), run( 7 ) );
    EXPECT_NE( run( 7 ), run( 8 ) );
}
