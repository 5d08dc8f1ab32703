#include "platform/GNet.h"

#include "support/TestLog.h"
#include "unit/desktop/TestGateway.h"

#include <gtest/gtest.h>

namespace
{
constexpr char16_t HOST[] = u"127.0.0.1:5060";
constexpr int LOW = 49152;
constexpr int HIGH = 65535;

// Of one attempt: an old entry goes first, whether there is one or not.
void expectAttempt( const TestGateway::Mapping& removed, const TestGateway::Mapping& added )
{
    EXPECT_EQ( removed.action, "DeletePortMapping" );
    EXPECT_EQ( removed.protocol, "UDP" );
    EXPECT_EQ( removed.externalPort, added.externalPort );
    EXPECT_EQ( added.action, "AddPortMapping" );
    EXPECT_EQ( added.protocol, "UDP" );
    EXPECT_EQ( added.internalClient, "127.0.0.1" );
    EXPECT_EQ( added.internalPort, "5060" );
    EXPECT_EQ( added.description, "Velmora" );
    const int port = std::stoi( added.externalPort );
    EXPECT_GE( port, LOW );
    EXPECT_LT( port, HIGH );
}
} // namespace

TEST( GNetUPnPMapping, MapsAPortOfTheRangeAndRemovesItsEntry )
{
    TestGateway gateway;
    GNetUPnPMapping* mapping = GNetUPnPMappingOpen( HOST, LOW, HIGH );
    ASSERT_TRUE( mapping );
    ASSERT_EQ( gateway.mappings( ).size( ), 2u );
    const TestGateway::Mapping added = gateway.mappings( )[1];
    expectAttempt( gateway.mappings( )[0], added );
    const std::string host = "5.5.5.5:" + added.externalPort;
    EXPECT_EQ( GNetUPnPMappingGetGlobalHost( mapping ), GWString( host.begin( ), host.end( ) ) );
    GNetUPnPMappingClose( mapping );
    ASSERT_EQ( gateway.mappings( ).size( ), 3u );
    EXPECT_EQ( gateway.mappings( )[2].action, "DeletePortMapping" );
    EXPECT_EQ( gateway.mappings( )[2].externalPort, added.externalPort );
}

TEST( GNetUPnPMapping, GatewayBehindAnotherMapsButHasNoHostForOthers )
{
    TestGateway gateway( 0, true, "192.168.7.1" );
    GNetUPnPMapping* mapping = GNetUPnPMappingOpen( HOST, LOW, HIGH );
    ASSERT_TRUE( mapping );
    EXPECT_EQ( GNetUPnPMappingGetGlobalHost( mapping ), u"0.0.0.0:0" );
    GNetUPnPMappingClose( mapping );
}

TEST( GNetUPnPMapping, TriesAnotherPortWhenOneIsRefused )
{
    TestGateway gateway( 1 );
    TestLog::expect( "WARNING Error HR return value: 718" );
    TestLog::expect( "WARNING Unable to create UPnP mapping for port " );
    GNetUPnPMapping* mapping = GNetUPnPMappingOpen( HOST, LOW, HIGH );
    ASSERT_TRUE( mapping );
    EXPECT_EQ( gateway.mappings( ).size( ), 4u );
    GNetUPnPMappingClose( mapping );
}

TEST( GNetUPnPMapping, GivesUpAfterFiveRefusals )
{
    TestGateway gateway( 100 );
    TestLog::expect( "WARNING Error HR return value: 718" );
    TestLog::expect( ", trying again." );
    EXPECT_FALSE( GNetUPnPMappingOpen( HOST, LOW, HIGH ) );
    EXPECT_EQ( TestLog::count( "WARNING Unable to create UPnP mapping for port " ), 5 );
    const std::vector<TestGateway::Mapping> mappings = gateway.mappings( );
    ASSERT_EQ( mappings.size( ), 10u );
    for( size_t i = 0; i < mappings.size( ); i += 2 ) expectAttempt( mappings[i], mappings[i + 1] );
}

TEST( GNetUPnPMapping, GatewayWithoutMappingsIsNone )
{
    TestGateway gateway( 0, false );
    EXPECT_FALSE( GNetUPnPMappingOpen( HOST, LOW, HIGH ) );
    EXPECT_TRUE( gateway.mappings( ).empty( ) );
}

TEST( GNetUPnPMapping, AddressAndPortAreRequired )
{
    TestLog::expect( "WARNING: Assertion failed. (!localIP.empty( ))" );
    TestLog::expect( "WARNING: Assertion failed. (localPort)" );
    EXPECT_FALSE( GNetUPnPMappingOpen( u":5060", LOW, HIGH ) );
    EXPECT_FALSE( GNetUPnPMappingOpen( u"127.0.0.1:0", LOW, HIGH ) );
    EXPECT_FALSE( GNetUPnPMappingOpen( u"", LOW, HIGH ) );
}

TEST( GNetUPnPMappingDeathTest, NullMappingAborts )
{
    EXPECT_DEATH( GNetUPnPMappingClose( nullptr ), "mapping" );
    EXPECT_DEATH( GNetUPnPMappingGetGlobalHost( nullptr ), "mapping" );
}

TEST( GNetUPnPMappingDeathTest, RangeWithoutAPortAborts )
{
    EXPECT_DEATH( GNetUPnPMappingOpen( HOST, LOW, LOW ), "lowPort < highPort" );
    EXPECT_DEATH( GNetUPnPMappingOpen( HOST, HIGH, LOW ), "lowPort < highPort" );
}
