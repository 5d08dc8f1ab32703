#include "platform/GFileMap.h"

#include "support/TestFolder.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <cstring>

namespace
{
class GFileMapTest : public TestFolder
{
};
using GFileMapDeathTest = GFileMapTest;
} // namespace

TEST_F( GFileMapTest, WritesThroughViewsFromAnyOffset )
{
    const GFileMap map = GFileMapCreate( u"data", 10001 );
    ASSERT_TRUE( map );
    EXPECT_EQ( GFileMapGetSize( map ), 10001 );
    char* const whole = GFileMapLock( map, 0, 10001 );
    char* const part = GFileMapLock( map, 5001, 5 );
    ASSERT_TRUE( whole && part );
    memcpy( part, "hello", 5 );
    EXPECT_EQ( memcmp( whole + 5001, "hello", 5 ), 0 );
    GFileMapUnlock( map, part );
    GFileMapUnlock( map, whole );
    GFileMapClose( map );
    EXPECT_EQ( read( "data" ).size( ), 10001u );
    EXPECT_EQ( read( "data" ).substr( 5000, 7 ), std::string( "\0hello\0", 7 ) );
}
TEST_F( GFileMapTest, ReadsAFileThatShrinksWithoutFault )
{
    write( "data", std::string( 9000, 'x' ) );
    const GFileMap map = GFileMapOpen( u"data", false );
    ASSERT_TRUE( map );
    char* const view = GFileMapLock( map, 4500, 4500 );
    ASSERT_TRUE( view );
    std::filesystem::resize_file( "data", 10 );
    EXPECT_EQ( view[4499], 'x' );
    EXPECT_EQ( GFileMapGetSize( map ), 10 );
    EXPECT_FALSE( GFileMapLock( map, 5, 6 ) );
    GFileMapUnlock( map, view );
    GFileMapClose( map );
}
TEST_F( GFileMapTest, LengthsOutOfRangeGiveNothing )
{
    const GFileMap map = GFileMapCreate( u"data", 10 );
    ASSERT_TRUE( map );
    EXPECT_FALSE( GFileMapLock( map, 0, -1 ) );
    EXPECT_FALSE( GFileMapLock( map, 0, int64_t( 1 ) << 31 ) );
    EXPECT_FALSE( GFileMapLock( map, -1, 5 ) );
    EXPECT_FALSE( GFileMapLock( map, 8, 5 ) );
    EXPECT_FALSE( GFileMapLock( map, INT64_MAX, 5 ) );
    GFileMapClose( map );
}
TEST_F( GFileMapTest, WriteOpenKeepsTheContent )
{
    write( "data", "0123456789" );
    const GFileMap map = GFileMapOpen( u"data", true );
    ASSERT_TRUE( map );
    char* const view = GFileMapLock( map, 3, 2 );
    memcpy( view, "ab", 2 );
    GFileMapUnlock( map, view );
    GFileMapClose( map );
    EXPECT_EQ( read( "data" ), "012ab56789" );
}
TEST_F( GFileMapTest, FailuresAreLogged )
{
    TestLog::expect( "WARNING Unable to open file mapping for 'none', write=FALSE, closing." );
    EXPECT_FALSE( GFileMapOpen( u"none", false ) );
    TestLog::expect( "WARNING Unable to open file mapping for 'none', write=TRUE, closing." );
    EXPECT_FALSE( GFileMapOpen( u"none", true ) );
    TestLog::expect( "WARNING Unable to create file mapping for 'none/data', closing." );
    EXPECT_FALSE( GFileMapCreate( u"none/data", 5 ) );
    TestLog::expect( "WARNING Unable to allocate 4611686018427387904 bytes, only got " );
    EXPECT_FALSE( GFileMapCreate( u"huge", int64_t( 1 ) << 62 ) );
    EXPECT_FALSE( std::filesystem::exists( "huge" ) );
}
TEST_F( GFileMapTest, FileInUseIsNotCreatedAgain )
{
    const GFileMap map = GFileMapCreate( u"data", 5 );
    TestLog::expect( "WARNING Unable to create file mapping for 'data', closing." );
    EXPECT_FALSE( GFileMapCreate( u"data", 7 ) );
    EXPECT_EQ( GFileMapGetSize( map ), 5 );
    GFileMapClose( map );
}
TEST_F( GFileMapDeathTest, BrokenArgumentsAbort )
{
    EXPECT_DEATH( GFileMapCreate( u"", 1 ), "!path.empty\\( \\)" );
    EXPECT_DEATH( GFileMapCreate( u"a", 0 ), "size > 0" );
    EXPECT_DEATH( GFileMapUnlock( nullptr, nullptr ), "fileMap && lock" );
}
