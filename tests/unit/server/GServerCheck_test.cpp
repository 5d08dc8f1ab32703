#include "server/GServerCheck.h"

#include "server/GServerCommands.h"
#include "support/TestFolder.h"
#include "support/TestLog.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <sstream>

namespace
{
class GServerCheckTest : public TestFolder
{
protected:
    GServerCheckTest( ) { config.portBase = 0; }
    // The findings as lines; `config` is what an operator wrote.
    GString findings( )
    {
        GString error;
        GString text;
        EXPECT_TRUE( config.finish( error ) ) << error;
        for( const GFinding& finding : GServerCheck::run( config ) ) text += GServerCheck::compose( finding ) + "\n";
        return text;
    }
    bool finds( const GString& line ) { return findings( ).find( line ) != GString::npos; }

    GServerConfig config;
};
} // namespace

TEST_F( GServerCheckTest, SettingsOfALoopbackAreGoodAndLeaveNoFile )
{
    EXPECT_EQ( findings( ),
               "NOTE no host is public: only this machine or its own network can reach the server\n"
               "WARNING stun: the direct, punched and unpunched hosts stand on 1 of three addresses, so that clients "
               "can't tell all kinds of network apart\n" );
    EXPECT_TRUE( std::filesystem::is_empty( "." ) );
}
TEST_F( GServerCheckTest, ThreeAddressesSuffice )
{
    config.stunPunched = "127.0.0.2:0";
    config.stunUnpunched = "127.0.0.3:0";
    EXPECT_FALSE( finds( "stun:" ) );
}
TEST_F( GServerCheckTest, AnAddressOfAnotherMachineIsAnError )
{
    config.logon = "192.0.2.1:4430";
    EXPECT_TRUE( finds( "ERROR logon: 192.0.2.1:4430 is no address of this machine; behind a router write" ) );
    config.logon = "127.0.0.1:0/192.0.2.1:4430";
    EXPECT_FALSE( finds( "ERROR" ) );
}
TEST_F( GServerCheckTest, APortInUseIsTold )
{
    boost::asio::io_context io;
    const boost::asio::ip::udp::socket taken( io, { boost::asio::ip::make_address_v4( "127.0.0.1" ), 0 } );
    config.signalling = "127.0.0.1:" + std::to_string( taken.local_endpoint( ).port( ) );
    EXPECT_TRUE( finds( "WARNING signalling: " + config.signalling + " is in use" ) );
}
TEST_F( GServerCheckTest, OnePlaceForTwoHostsIsAnError )
{
    config.stunPunched = "127.0.0.1:45321";
    config.stunUnpunched = "127.0.0.1:45321";
    EXPECT_TRUE( finds( "ERROR stun_unpunched: 127.0.0.1:45321 is named twice" ) );
}
TEST_F( GServerCheckTest, RolesAreTested )
{
    config.roles = "logon, stunn";
    EXPECT_TRUE( finds( "ERROR roles names 'stunn', which there is not" ) );
    config.roles = " ";
    EXPECT_TRUE( finds( "ERROR roles names none" ) );
}
TEST_F( GServerCheckTest, AHostThatOnlyNeighboursReachIsTold )
{
    config.logon = "127.0.0.1:0/8.8.4.4:4430";
    EXPECT_TRUE( finds( "WARNING signalling (127.0.0.1:0) can't be reached from outside, while other hosts can" ) );
    EXPECT_FALSE( finds( "WARNING metrics" ) );
}
TEST_F( GServerCheckTest, FiguresForEveryoneAreTold )
{
    config.metrics = "0.0.0.0:0/127.0.0.1:4439";
    EXPECT_TRUE( finds( "WARNING metrics: whoever reaches 0.0.0.0:0 reads the figures" ) );
}
TEST_F( GServerCheckTest, ARelayIntoTheOwnNetworkIsTold )
{
    config.relayAllowPrivate = true;
    EXPECT_FALSE( finds( "relay_allow_private" ) );
    config.relayUDP = "127.0.0.1/8.8.4.4";
    EXPECT_TRUE( finds( "WARNING relay_allow_private lets clients send into the server's own network" ) );
}
TEST_F( GServerCheckTest, TooFewRelayPortsAreTold )
{
    config.relayPortLow = 50000;
    config.relayPortHigh = 50009;
    EXPECT_TRUE( finds( "WARNING relay_port_low to relay_port_high hold 10 ports for 1000 relay_allocations" ) );
}
TEST_F( GServerCheckTest, AFolderThatCantBeMadeIsAnError )
{
    write( "plain", "a file" );
    config.logDirectory = "plain/logs";
    config.store = "plain/velmora.db";
    EXPECT_TRUE( finds( "ERROR store: can't write to 'plain'" ) );
    EXPECT_TRUE( finds( "ERROR log_directory: can't write to 'plain'" ) );
}
TEST_F( GServerCheckTest, AnUpgradeWithoutItsFileIsAnError )
{
    config.upgradeVersion = 765;
    EXPECT_TRUE( finds( "ERROR upgrade_version offers 765, but there is no file 'upgrade/upgrade.exe'" ) );
    std::filesystem::create_directory( "upgrade" );
    write( "upgrade/upgrade.exe", "new" );
    EXPECT_FALSE( finds( "upgrade_version" ) );
}
TEST_F( GServerCheckTest, TheCommandFailsOnErrorsOnly )
{
    GString error;
    ASSERT_TRUE( config.finish( error ) );
    std::ostringstream out;
    EXPECT_EQ( GServerCommands::run( config, { "check" }, out, out ), 0 );
    EXPECT_TRUE( out.str( ).ends_with( "the settings are good\n" ) );
    EXPECT_FALSE( std::filesystem::exists( config.store ) );
    config.roles = "none";
    EXPECT_EQ( GServerCommands::run( config, { "check" }, out, out ), 1 );
}
