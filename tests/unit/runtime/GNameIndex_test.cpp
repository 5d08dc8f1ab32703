#include "runtime/GNameIndex.h"

#include "base/GUtil.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace
{
using Map = std::map<GWString, int, std::less<>>;
}

TEST( GFoldedName, LowersAsciiCapitalsAtEveryLength )
{
    std::mt19937 random( 1 );
    const GWString units = u"AZaz@[`{09_\u00C4\u0041\u0100\u7FFF\u8041\uFF21\uFFFF";
    for( size_t length = 0; length < 300; ++length )
    {
        GWString name;
        for( size_t i = 0; i < length; ++i ) name += units[random( ) % units.size( )];
        const GFoldedName folded( name );
        ASSERT_EQ( folded.view( ), GToLower( name ) ) << length;
        ASSERT_EQ( folded.text( ), GToLower( name ) );
        ASSERT_EQ( folded.hash( ), GFoldedName( GToLower( name ) ).hash( ) );
    }
}
TEST( GFoldedName, HashesTellNamesApart )
{
    std::map<uint64_t, GWString> seen;
    for( int i = 0; i < 20000; ++i )
    {
        const GWString name = GConcat( u"name", i );
        EXPECT_TRUE( seen.emplace( GFoldedName( name ).hash( ), name ).second ) << i;
    }
    // Blanks at the end and zero units count.
    EXPECT_NE( GFoldedName( u"a" ).hash( ), GFoldedName( GWString( u"a\0", 2 ) ).hash( ) );
    EXPECT_NE( GFoldedName( u"" ).hash( ), GFoldedName( GWString( 1, u'\0' ) ).hash( ) );
}
TEST( GNameIndex, FollowsItsMapThroughEveryChange )
{
    std::mt19937 random( 2 );
    Map map;
    GNameIndex<Map::value_type> index;
    for( int i = 0; i < 50000; ++i )
    {
        // Few names at first and many later, so that the index grows while entries leave it.
        const GWString name = GConcat( u"n", random( ) % ( 10 + static_cast<unsigned>( i ) / 50 ) );
        const GFoldedName folded( name );
        Map::value_type* const entry = index.find( folded );
        const auto found = map.find( name );
        ASSERT_EQ( entry, found == map.end( ) ? nullptr : &*found );
        if( entry )
        {
            index.erase( folded.hash( ), entry );
            map.erase( found );
        }
        else
            index.insert( folded.hash( ), &*map.emplace( name, i ).first );
    }
    for( Map::value_type& entry : map ) ASSERT_EQ( index.find( GFoldedName( entry.first ) ), &entry );
}
TEST( GNameIndex, KeepsNamesOfOneHashApart )
{
    Map map{ { u"a", 1 }, { u"b", 2 }, { u"c", 3 } };
    GNameIndex<Map::value_type> index;
    const uint64_t hash = GFoldedName( u"b" ).hash( );
    for( Map::value_type& entry : map ) index.insert( hash, &entry );
    EXPECT_EQ( index.find( GFoldedName( u"B" ) ), &*map.find( u"b" ) );
    index.erase( hash, &*map.find( u"a" ) );
    EXPECT_EQ( index.find( GFoldedName( u"b" ) ), &*map.find( u"b" ) );
    index.erase( hash, &*map.find( u"b" ) );
    EXPECT_FALSE( index.find( GFoldedName( u"b" ) ) );
}
