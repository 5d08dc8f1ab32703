#include "server/core/GServerSchema.h"

#include "support/TestFolder.h"
#include "unit/server/ServerFixture.h"
#include "unit/server/StoreVersions.h"

#include <sqlite3.h>

namespace
{
static_assert( std::size( STORE_VERSIONS ) == GServerSchema::VERSION, "each earlier version has its store" );

GString earlier( int version )
{
    const auto& parts = STORE_VERSIONS[version];
    return GString( parts[0] ) + parts[1];
}
bool execute( const char* path, const GString& sql )
{
    sqlite3* database = nullptr;
    const bool good = sqlite3_open( path, &database ) == SQLITE_OK &&
                      sqlite3_exec( database, sql.c_str( ), nullptr, nullptr, nullptr ) == SQLITE_OK;
    EXPECT_TRUE( good ) << sqlite3_errmsg( database );
    sqlite3_close( database );
    return good;
}
using GServerSchemaOpening = TestFolder;
class GServerSchemaTest : public TestFolder, public testing::WithParamInterface<int>
{
};
} // namespace

TEST_P( GServerSchemaTest, AnEarlierStoreKeepsAllThatItHeld )
{
    ASSERT_TRUE( execute( "store.db", earlier( GetParam( ) ) ) );
    GString error;
    for( int opening = 0; opening < 2; ++opening )
    {
        GServerStore store;
        ASSERT_TRUE( store.open( "store.db", error ) ) << error;
        EXPECT_EQ( store.getAccount( "ann@velmora.local" )->email, "ann@example.org" );
        EXPECT_TRUE( GPasswordVerify( store.getAccount( "ben@velmora.local" )->hash, "secret", { 1, 8192 } ) );
        EXPECT_EQ( store.getBuddies( "ann@velmora.local" ), std::vector<GString>{ "ben@velmora.local" } );
        EXPECT_TRUE( store.hasLogon( "ann@velmora.local", "127.0.0.1", START ) );
        ASSERT_EQ( store.listRegistrations( ).size( ), 1u );
        EXPECT_EQ( store.listRegistrations( )[0].expires, START + 1800 * SECOND );
        EXPECT_FALSE( store.listRegistrations( )[0].contacts );
        EXPECT_EQ( store.countBugReports( "ann@velmora.local", 0 ), 1 );
        EXPECT_TRUE( store.useDevice( "dev1", "ann@velmora.local", START, 1 ) );
        EXPECT_TRUE( store.addRequest( "ben@velmora.local", "ann@velmora.local", START ) ) << "and has what is new";
    }
}
INSTANTIATE_TEST_SUITE_P( Versions, GServerSchemaTest, testing::Range( 0, GServerSchema::VERSION ) );

TEST_F( GServerSchemaOpening, ALaterStoreIsLeftAlone )
{
    GString error;
    {
        GServerStore store;
        ASSERT_TRUE( store.open( "store.db", error ) ) << error;
    }
    ASSERT_TRUE( execute( "store.db", "PRAGMA user_version=" + std::to_string( GServerSchema::VERSION + 1 ) ) );
    GServerStore store;
    EXPECT_FALSE( store.open( "store.db", error ) );
    EXPECT_NE( error.find( "a later velmora-server has written it" ), GString::npos ) << error;
}
TEST_F( GServerSchemaOpening, AStepThatFailsLeavesTheStoreAsItWas )
{
    // A table of the name that the step is about to make.
    ASSERT_TRUE( execute( "store.db", earlier( 1 ) + "CREATE TABLE block(x);" ) );
    GString error;
    {
        GServerStore store;
        EXPECT_FALSE( store.open( "store.db", error ) );
        EXPECT_NE( error.find( "block already exists" ), GString::npos ) << error;
    }
    ASSERT_TRUE( execute( "store.db", "DROP TABLE block" ) );
    GServerStore store;
    EXPECT_TRUE( store.open( "store.db", error ) ) << error;
    EXPECT_TRUE( store.getAccount( "ann@velmora.local" ) );
}
