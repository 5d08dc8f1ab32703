#include "client/media/GMediaBudget.h"

#include <gtest/gtest.h>

namespace
{
constexpr uint64_t START = 13000000000000000ULL;
constexpr uint64_t SECOND = 1000000;

// How much of the cost a second is taken over ten seconds, in packets of that cost.
int64_t takenInTenSeconds( int64_t cost, int perSecond )
{
    GMediaBudget budget;
    int64_t taken = 0;
    for( int i = 0; i < 10 * perSecond; ++i )
        if( budget.allows( START + SECOND * static_cast<uint64_t>( i ) / static_cast<uint64_t>( perSecond ) ) )
        {
            budget.charge( cost );
            taken += cost;
        }
    return taken;
}
} // namespace

TEST( GMediaBudget, HonestStreamsAreNeverRefused )
{
    // The largest picture fifteen times a second; sound of the highest rate in packets of two frames.
    const int64_t picture = GMediaBudget::PACKET + 4096 * GMediaBudget::MACRO_BLOCK;
    EXPECT_EQ( 10 * 15 * picture, takenInTenSeconds( picture, 15 ) );
    const int64_t sound = GMediaBudget::PACKET + 80 * GMediaBudget::SOUND_BYTE;
    EXPECT_EQ( 10 * 150 * sound, takenInTenSeconds( sound, 150 ) );
    // Two talks a second, begun and ended.
    EXPECT_EQ( 10 * 4 * GMediaBudget::NEW_TALK, takenInTenSeconds( GMediaBudget::NEW_TALK, 4 ) );
}

TEST( GMediaBudget, NobodyTakesMoreThanAQuarterOfTheTimeForLong )
{
    for( const int64_t cost : { int64_t{ 5 }, int64_t{ 500 }, GMediaBudget::NEW_TALK, int64_t{ 400000 } } )
        EXPECT_LE( takenInTenSeconds( cost, 100000 ), 500000 + 2500000 + cost ) << cost;
}

TEST( GMediaBudget, WhoHasSpentItWaitsUntilHalfIsBackAndIsToldOnce )
{
    GMediaBudget budget;
    EXPECT_TRUE( budget.allows( START ) );
    EXPECT_FALSE( budget.takeRefusal( ) );
    budget.charge( GMediaBudget::ALLOWANCE );
    EXPECT_TRUE( budget.takeRefusal( ) );
    EXPECT_FALSE( budget.takeRefusal( ) );
    EXPECT_FALSE( budget.allows( START + SECOND - 4 ) );
    EXPECT_TRUE( budget.allows( START + SECOND ) );
}

TEST( GMediaBudget, DebtsAndSavingsHaveAnEnd )
{
    GMediaBudget budget;
    budget.allows( START );
    budget.charge( INT64_MAX / 2 );
    EXPECT_FALSE( budget.allows( START + 3 * SECOND - 4 ) );
    EXPECT_TRUE( budget.allows( START + 3 * SECOND ) );
    EXPECT_TRUE( budget.allows( START + 1000 * SECOND ) );
    budget.charge( GMediaBudget::ALLOWANCE - 1 );
    EXPECT_TRUE( budget.allows( START + 1000 * SECOND ) );
    budget.charge( 1 );
    EXPECT_FALSE( budget.allows( START + 1000 * SECOND ) );
}

TEST( GMediaBudget, ClockThatIsSetBackGivesNothing )
{
    GMediaBudget budget;
    budget.allows( START );
    budget.charge( GMediaBudget::ALLOWANCE );
    EXPECT_FALSE( budget.allows( START - 100 * SECOND ) );
    EXPECT_FALSE( budget.allows( START - 100 * SECOND + SECOND / 2 ) );
    EXPECT_TRUE( budget.allows( START - 99 * SECOND ) );
}
