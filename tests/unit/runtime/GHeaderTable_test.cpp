#include "runtime/GHeaderTable.h"

#include "base/GUtil.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace
{
std::vector<std::pair<GWString, GWString>> listOf( const GHeaderTable& table )
{
    std::vector<std::pair<GWString, GWString>> list;
    for( const auto& [name, value] : table ) list.emplace_back( name, value );
    return list;
}
} // namespace

TEST( GHeaderTable, KeepsNamesInTheOrderOfTheirUnits )
{
    GHeaderTable table;
    for( const char16_t* name : { u"b", u"", u"\uFFFD", u"a", u"B", u"ab", u"\U0001F600" } ) table.set( name, name );
    std::vector<GWString> names;
    for( const auto& [name, value] : table ) names.emplace_back( name );
    EXPECT_EQ( names, ( std::vector<GWString>{ u"", u"B", u"a", u"ab", u"b", u"\U0001F600", u"\uFFFD" } ) );
}
TEST( GHeaderTable, FollowsAMapThroughEveryChange )
{
    std::mt19937 random( 3 );
    GHeaderTable table;
    std::map<GWString, GWString> map;
    for( int i = 0; i < 20000; ++i )
    {
        const GWString name( random( ) % 3, static_cast<char16_t>( u'a' + random( ) % 5 ) );
        const GWString value( random( ) % 40, static_cast<char16_t>( u'0' + random( ) % 10 ) );
        if( random( ) % 4 )
        {
            table.set( name, value );
            map[name] = value;
        }
        else
            ASSERT_EQ( table.erase( name ), map.erase( name ) > 0 );
        ASSERT_EQ( table.get( name ), map.contains( name ) ? map[name] : GWString( ) );
        ASSERT_EQ( table.contains( name ), map.contains( name ) );
    }
    EXPECT_EQ( listOf( table ), ( std::vector<std::pair<GWString, GWString>>( map.begin( ), map.end( ) ) ) );
}
TEST( GHeaderTable, TakesItsOwnTextAsAValue )
{
    GHeaderTable table;
    table.set( u"a", u"0123456789" );
    for( int i = 0; i < 100; ++i )
    {
        table.set( GConcat( u"copy", i ), table.get( u"a" ) );
        table.set( table.get( u"a" ), table.get( u"a" ) );
    }
    table.set( u"a", table.get( u"a" ).substr( 3 ) );
    EXPECT_EQ( table.get( u"a" ), u"3456789" );
    EXPECT_EQ( table.get( u"copy99" ), u"0123456789" );
    EXPECT_EQ( table.get( u"0123456789" ), u"0123456789" );
}
TEST( GHeaderTable, CopiesAndMovesAreTheirOwn )
{
    GHeaderTable table;
    table.set( u"a", u"1" );
    GHeaderTable copy( table );
    copy.set( u"a", u"2" );
    copy.set( u"b", u"3" );
    GHeaderTable moved( std::move( copy ) );
    EXPECT_EQ( table.get( u"a" ), u"1" );
    EXPECT_EQ( moved.get( u"b" ), u"3" );
    EXPECT_TRUE( copy.empty( ) ); // NOLINT: a moved table is an empty one.
    copy.set( u"c", u"4" );
    EXPECT_EQ( copy.get( u"c" ), u"4" );
    copy = moved;
    EXPECT_EQ( listOf( copy ), listOf( moved ) );
    table = std::move( moved );
    EXPECT_EQ( table.size( ), 2u );
}
