// Copies of the store, damage, and what is forgotten.
#include "server/core/GServerStore.h"

#include "support/TestFolder.h"
#include "unit/server/ServerFixture.h"

#include <fstream>

using GServerStoreFile = TestFolder;

TEST_F( GServerStoreFile, ABackupIsTakenBackWhole )
{
    GString error;
    GServerStore store;
    ASSERT_TRUE( store.open( "store.db", error ) ) << error;
    store.addAccount( { "ann@x", "h", "e", 1 } );
    EXPECT_FALSE( store.backup( "none/backup.db", error ) );
    EXPECT_NE( error.find( "none/backup.db" ), GString::npos );
    ASSERT_TRUE( store.backup( "backup.db", error ) ) << error;
    store.addAccount( { "ben@x", "h", "e", 1 } );
    store.removeAccount( "ann@x" );
    ASSERT_TRUE( store.restore( "backup.db", error ) ) << error;
    EXPECT_TRUE( store.getAccount( "ann@x" ) );
    EXPECT_FALSE( store.getAccount( "ben@x" ) );
    std::ofstream( "text.db" ) << "no store at all";
    EXPECT_FALSE( store.restore( "text.db", error ) );
    EXPECT_FALSE( store.restore( "missing.db", error ) );
    EXPECT_TRUE( store.getAccount( "ann@x" ) );
    EXPECT_TRUE( store.check( error ) ) << error;
}
TEST_F( GServerStoreFile, ADamagedFileIsTold )
{
    const GString path = "store.db";
    GString error;
    {
        GServerStore store;
        ASSERT_TRUE( store.open( path, error ) ) << error;
        for( int i = 0; i < 500; ++i ) store.addDevice( "device" + std::to_string( i ), 1 );
    }
    const auto size = static_cast<std::streamoff>( std::filesystem::file_size( path ) );
    std::fstream file( path, std::ios::in | std::ios::out | std::ios::binary );
    file.seekp( size / 4 * 3 );
    file << GString( static_cast<size_t>( size / 8 ), '\x5a' );
    file.close( );
    GServerStore store;
    ASSERT_TRUE( store.open( path, error ) ) << error;
    EXPECT_FALSE( store.check( error ) );
    EXPECT_NE( error.find( "the store is damaged" ), GString::npos ) << error;
}
TEST( GServerStore, OnlyTheNewestReportsStay )
{
    GServerStore store;
    GString error;
    ASSERT_TRUE( store.open( ":memory:", error ) );
    for( int i = 0; i < 10100; ++i ) store.addBugReport( "ann@x", "", std::to_string( i ), START );
    EXPECT_TRUE( store.expire( 0, 0 ) );
    ASSERT_EQ( store.listBugReports( ).size( ), 10000u );
    EXPECT_EQ( store.listBugReports( ).front( ).text, "100" );
}
