#include "image/GFrag.h"

#include "support/TestLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace
{
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t WINDOW = 7;

GFrag frag( int left, int top, int right, int bottom, uint32_t id = WINDOW )
{
    return { id, { left, top, right, bottom } };
}
int64_t areaOf( const GFragList& list )
{
    int64_t area = 0;
    for( const GFrag& each : list ) area += int64_t{ each.rect.width( ) } * each.rect.height( );
    return area;
}
bool covers( const GFragList& list, int x, int y )
{
    return std::any_of( list.begin( ), list.end( ),
                        [x, y]( const GFrag& each ) { return each.rect.contains( x, y ); } );
}

// Small random rectangles, so that edges meet often.
class Dice
{
public:
    explicit Dice( unsigned seed ) : _source( seed ) {}
    int upTo( int most ) { return static_cast<int>( _source( ) % static_cast<unsigned>( most + 1 ) ); }
    GFrag frag( )
    {
        const int left = upTo( EDGE ), top = upTo( EDGE );
        return { static_cast<uint32_t>( upTo( 2 ) ), { left, top, left + 1 + upTo( EDGE ), top + 1 + upTo( EDGE ) } };
    }
    static constexpr int EDGE = 12;

private:
    std::mt19937 _source;
};
} // namespace

TEST( GFragExplodeList, AHundredByFiftyMakesSixTiles )
{
    GFragList list{ frag( 10, 20, 110, 70 ) };
    GFragExplodeList( list, 48, 48 );
    EXPECT_THAT( list, ElementsAre( frag( 10, 20, 58, 68 ), frag( 58, 20, 106, 68 ), frag( 106, 20, 110, 68 ),
                                    frag( 10, 68, 58, 70 ), frag( 58, 68, 106, 70 ), frag( 106, 68, 110, 70 ) ) );
}

TEST( GFragExplodeList, OneTileStaysUnchanged )
{
    GFragList list{ frag( 0, 0, 48, 48 ), frag( 5, 5, 6, 53 ), frag( 3, 3, 3, 3 ) };
    const GFragList before = list;
    const GFrag* place = &list.front( );
    GFragExplodeList( list, 48, 48 );
    EXPECT_EQ( list, before );
    EXPECT_EQ( &list.front( ), place );
}

TEST( GFragExplodeList, OneDirectionTooLongIsEnough )
{
    GFragList list{ frag( 0, 0, 49, 1 ), frag( 0, 0, 1, 49, 8 ) };
    GFragExplodeList( list, 48, 48 );
    EXPECT_THAT( list, ElementsAre( frag( 0, 0, 48, 1 ), frag( 48, 0, 49, 1 ), frag( 0, 0, 1, 48, 8 ),
                                    frag( 0, 48, 1, 49, 8 ) ) );
}

TEST( GFragExplodeList, TilesStandInThePlaceOfTheOriginal )
{
    GFragList list{ frag( 0, 0, 4, 4, 1 ), frag( 0, 0, 20, 10, 2 ), frag( 9, 9, 12, 12, 3 ) };
    GFragExplodeList( list, 10, 10 );
    EXPECT_THAT( list, ElementsAre( frag( 0, 0, 4, 4, 1 ), frag( 0, 0, 10, 10, 2 ), frag( 10, 0, 20, 10, 2 ),
                                    frag( 9, 9, 12, 12, 3 ) ) );
}

TEST( GFragExplodeList, NegativeAndDistantCoordinatesHold )
{
    GFragList list{ frag( -60, -1, -10, 0 ), frag( INT32_MAX - 50, 0, INT32_MAX, 1 ),
                    frag( INT32_MIN, 0, INT32_MIN + 2, 1 ) };
    GFragExplodeList( list, 48, 48 );
    EXPECT_THAT( list, ElementsAre( frag( -60, -1, -12, 0 ), frag( -12, -1, -10, 0 ),
                                    frag( INT32_MAX - 50, 0, INT32_MAX - 2, 1 ), frag( INT32_MAX - 2, 0, INT32_MAX, 1 ),
                                    frag( INT32_MIN, 0, INT32_MIN + 2, 1 ) ) );
}

TEST( GFragExplodeList, ALongFragmentWithoutAreaAborts )
{
    GFragList list{ frag( 0, 0, 0, 49 ) };
    EXPECT_DEATH( GFragExplodeList( list, 48, 48 ), "numWide > 0 && numHigh > 0" );
    EXPECT_DEATH( GFragExplodeList( list, 0, 48 ), "tileWidth > 0 && tileHeight > 0" );
}

TEST( GFragSubtract, TheMiddleLeavesFourPiecesAboveBelowLeftRight )
{
    GFragList list{ frag( 0, 0, 10, 10 ) };
    GFragSubtract( list, frag( 3, 4, 6, 8, 99 ) );
    EXPECT_THAT( list,
                 ElementsAre( frag( 0, 0, 10, 4 ), frag( 0, 8, 10, 10 ), frag( 0, 4, 3, 8 ), frag( 6, 4, 10, 8 ) ) );
}

TEST( GFragSubtract, ACornerLeavesTwoPieces )
{
    GFragList list{ frag( 0, 0, 10, 10 ) };
    GFragSubtract( list, frag( -5, -5, 4, 3 ) );
    EXPECT_THAT( list, ElementsAre( frag( 0, 3, 10, 10 ), frag( 4, 0, 10, 3 ) ) );
    list = { frag( 0, 0, 10, 10 ) };
    GFragSubtract( list, frag( 6, 7, 15, 15 ) );
    EXPECT_THAT( list, ElementsAre( frag( 0, 0, 10, 7 ), frag( 0, 7, 6, 10 ) ) );
}

TEST( GFragSubtract, WhatLiesWhollyInsideDisappears )
{
    GFragList list{ frag( 2, 2, 5, 5 ), frag( 0, 0, 10, 10 ), frag( 4, 4, 4, 4 ) };
    GFragSubtract( list, frag( 0, 0, 10, 10 ) );
    EXPECT_THAT( list, IsEmpty( ) );
}

TEST( GFragSubtract, NeighboursThatOnlyTouchGoOverUnchanged )
{
    const GFragList before{ frag( 0, 0, 5, 5 ), frag( 15, 5, 20, 15 ), frag( 5, 0, 15, 5 ), frag( 5, 15, 15, 20 ) };
    GFragList list = before;
    GFragSubtract( list, frag( 5, 5, 15, 15 ) );
    EXPECT_EQ( list, before );
}

TEST( GFragSubtract, PiecesStandInTheOrderOfTheList )
{
    GFragList list{ frag( 0, 0, 10, 2, 1 ), frag( 20, 0, 30, 2, 2 ), frag( 0, 0, 2, 10, 3 ) };
    GFragSubtract( list, frag( 0, 0, 5, 5 ) );
    EXPECT_THAT( list, ElementsAre( frag( 5, 0, 10, 2, 1 ), frag( 20, 0, 30, 2, 2 ), frag( 0, 5, 2, 10, 3 ) ) );
}

TEST( GFragSubtract, AMemberOfTheListMayBeSubtracted )
{
    GFragList list{ frag( 0, 0, 10, 10 ), frag( 0, 0, 20, 10 ) };
    GFragSubtract( list, list.front( ) );
    EXPECT_THAT( list, ElementsAre( frag( 10, 0, 20, 10 ) ) );
}

TEST( GFragAddOver, ReplacesWhatItCovers )
{
    GFragList list{ frag( 0, 0, 10, 10 ), frag( 0, 20, 10, 30, 8 ) };
    GFragAddOver( list, frag( 5, 0, 15, 30 ) );
    EXPECT_THAT( list, ElementsAre( frag( 0, 0, 5, 10 ), frag( 0, 20, 5, 30, 8 ), frag( 5, 0, 15, 30 ) ) );
}

TEST( GFragAddOver, NothingHappensWhenTheSameWindowContainsItAlready )
{
    GFragList list{ frag( 0, 0, 10, 10 ) };
    GFragAddOver( list, frag( 2, 2, 10, 10 ) );
    EXPECT_THAT( list, ElementsAre( frag( 0, 0, 10, 10 ) ) );
    GFragAddOver( list, frag( 2, 2, 10, 10, 8 ) );
    EXPECT_THAT( list, ElementsAre( frag( 0, 0, 10, 2 ), frag( 0, 2, 2, 10 ), frag( 2, 2, 10, 10, 8 ) ) );
}

TEST( GFragAddUnder, AddsOnlyWhatIsNotCoveredYet )
{
    GFragList list{ frag( 0, 0, 10, 10, 1 ), frag( 10, 0, 20, 5, 2 ) };
    GFragAddUnder( list, frag( 5, 0, 20, 10, 3 ) );
    EXPECT_THAT( list, ElementsAre( frag( 0, 0, 10, 10, 1 ), frag( 10, 0, 20, 5, 2 ), frag( 10, 5, 20, 10, 3 ) ) );
    const GFragList before = list;
    GFragAddUnder( list, frag( 1, 1, 19, 9, 4 ) );
    EXPECT_EQ( list, before );
}

TEST( GFragAddUnder, WindowsFromTheFrontGiveTheirVisibleAreas )
{
    GFragList list;
    GFragAddUnder( list, frag( 2, 2, 4, 4, 1 ) );
    GFragAddUnder( list, frag( 0, 0, 6, 6, 2 ) );
    GFragAddUnder( list, frag( 1, 5, 3, 9, 3 ) );
    EXPECT_THAT( list, ElementsAre( frag( 2, 2, 4, 4, 1 ), frag( 0, 0, 6, 2, 2 ), frag( 0, 4, 6, 6, 2 ),
                                    frag( 0, 2, 2, 4, 2 ), frag( 4, 2, 6, 4, 2 ), frag( 1, 6, 3, 9, 3 ) ) );
}

TEST( GFrag, SubtractionKeepsEveryOtherPointAndOverlapsNothing )
{
    Dice dice( 1 );
    for( int round = 0; round < 3000; round++ )
    {
        const GFrag whole = dice.frag( ), hole = dice.frag( );
        GFragList list{ whole };
        GFragSubtract( list, hole );
        const GRect common = GRectIntersect( whole.rect, hole.rect );
        const int64_t lost = GRectEmpty( common ) ? 0 : int64_t{ common.width( ) } * common.height( );
        ASSERT_EQ( areaOf( list ), areaOf( { whole } ) - lost );
        ASSERT_LE( list.size( ), 4U );
        for( int y = 0; y < Dice::EDGE * 2 + 2; y++ )
            for( int x = 0; x < Dice::EDGE * 2 + 2; x++ )
                ASSERT_EQ( covers( list, x, y ), whole.rect.contains( x, y ) && !hole.rect.contains( x, y ) );
    }
}

TEST( GFrag, TilesCoverTheirFragmentOnceAndFitATile )
{
    Dice dice( 2 );
    for( int round = 0; round < 3000; round++ )
    {
        const GFrag whole = dice.frag( );
        const int width = 1 + dice.upTo( 5 ), height = 1 + dice.upTo( 5 );
        GFragList list{ whole };
        GFragExplodeList( list, width, height );
        ASSERT_EQ( areaOf( list ), areaOf( { whole } ) );
        for( const GFrag& tile : list )
        {
            ASSERT_TRUE( GRectHasVolume( tile.rect ) && GRectContains( whole.rect, tile.rect ) );
            ASSERT_TRUE( tile.rect.width( ) <= width && tile.rect.height( ) <= height && tile.id == whole.id );
        }
        for( int y = whole.rect.top; y < whole.rect.bottom; y++ )
            for( int x = whole.rect.left; x < whole.rect.right; x++ ) ASSERT_TRUE( covers( list, x, y ) );
    }
}

TEST( GFrag, ListsBuiltByAddingNeverOverlapAndShowTheFrontmost )
{
    Dice dice( 3 );
    for( int round = 0; round < 500; round++ )
    {
        GFragList over, under;
        std::vector<GFrag> added;
        for( int i = 0; i < 6; i++ )
        {
            added.push_back( dice.frag( ) );
            GFragAddOver( over, added.back( ) );
            GFragAddUnder( under, added.back( ) );
        }
        for( int y = 0; y < Dice::EDGE * 2 + 2; y++ )
            for( int x = 0; x < Dice::EDGE * 2 + 2; x++ )
            {
                const auto holds = [x, y]( const GFrag& each ) { return each.rect.contains( x, y ); };
                const auto first = std::find_if( added.begin( ), added.end( ), holds );
                const auto shown = std::find_if( under.begin( ), under.end( ), holds );
                ASSERT_EQ( first == added.end( ), shown == under.end( ) );
                if( shown != under.end( ) )
                {
                    ASSERT_EQ( first->id, shown->id );
                }
                ASSERT_EQ( std::count_if( over.begin( ), over.end( ), holds ), first != added.end( ) );
            }
    }
}
