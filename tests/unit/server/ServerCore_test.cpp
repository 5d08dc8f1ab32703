#include "server/core/GEndpoint.h"
#include "server/core/GRateLimit.h"
#include "server/core/GReplyCache.h"
#include "server/core/GServerMessage.h"
#include "server/log/GLogRole.h"
#include "server/relay/GRelayFrame.h"
#include "server/relay/GRelayPolicy.h"
#include "server/upgrade/GUpgradeRole.h"
#include "support/CountAllocations.h"
#include "unit/server/ServerFixture.h"

#include <filesystem>
#include <fstream>

namespace
{
struct TempFolder
{
    TempFolder( ) : path( std::filesystem::temp_directory_path( ) / ( "velmora-" + GPasswordRandomText( 12 ) ) )
    {
        std::filesystem::create_directories( path );
    }
    ~TempFolder( ) { std::filesystem::remove_all( path ); }
    std::filesystem::path path;
};
bool configures( const GString& text, GString& error )
{
    GServerConfig config;
    error.clear( );
    return config.parse( text, error ) && config.finish( error );
}
} // namespace

TEST( GServerConfig, RunsOnLoopbackWithoutAFile )
{
    GServerConfig config;
    GString error;
    ASSERT_TRUE( config.finish( error ) );
    EXPECT_EQ( config.logon, "127.0.0.1:4430" );
    EXPECT_EQ( config.stunRefresh, "127.0.0.1:4434" );
    EXPECT_EQ( config.relayUDP, "127.0.0.1/127.0.0.1" );
    EXPECT_FALSE( config.relayAllowPrivate );
    EXPECT_TRUE( config.hasRole( "stun" ) );
    EXPECT_FALSE( config.hasRole( "stu" ) );
}
TEST( GServerConfig, ReadsKeysCommentsAndSections )
{
    GServerConfig config;
    GString error;
    ASSERT_TRUE( config.parse( "# c\r\n[server]\n domain = example.org \n;x\n\nrelay_allow_private=yes\nport_base=0\n"
                               "stun_direct = 10.0.0.5:3478/203.0.113.7:3478\n",
                               error ) )
        << error;
    ASSERT_TRUE( config.finish( error ) ) << error;
    EXPECT_EQ( config.domain, "example.org" );
    EXPECT_TRUE( config.relayAllowPrivate );
    EXPECT_EQ( config.signalling, "127.0.0.1:0" );
    EXPECT_EQ( GServerHost::split( config.stunDirect ).reached, "203.0.113.7:3478" );
}
TEST( GServerConfig, NamesTheLineThatIsWrong )
{
    GString error;
    EXPECT_FALSE( configures( "domain = x\nnonsense\n", error ) );
    EXPECT_EQ( error, "line 2: no '='" );
    EXPECT_FALSE( configures( "colour = red", error ) );
    EXPECT_EQ( error, "line 1: unknown key 'colour'" );
    EXPECT_FALSE( configures( "port_base = 70000", error ) );
    EXPECT_FALSE( configures( "relay_allow_private = maybe", error ) );
    EXPECT_FALSE( configures( "logon = name:80", error ) );
    EXPECT_FALSE( configures( "signalling = 127.0.0.1:1, 127.0.0.1:99999", error ) );
    EXPECT_FALSE( configures( "domain = a@b", error ) );
    EXPECT_FALSE( configures( "address = 0.0.0.0", error ) );
    EXPECT_NE( error.find( "clients can reach" ), GString::npos );
}

TEST( GRateLimit, SpendsABurstAndFillsWithTime )
{
    GRateLimit limit( 2, 3 );
    for( int i = 0; i < 3; ++i ) EXPECT_TRUE( limit.take( "a", START ) );
    EXPECT_FALSE( limit.take( "a", START ) );
    EXPECT_TRUE( limit.take( "b", START ) );
    EXPECT_FALSE( limit.test( "a", START + SECOND / 4 ) );
    EXPECT_TRUE( limit.take( "a", START + SECOND / 2 ) );
    EXPECT_FALSE( limit.take( "a", START ) ) << "a clock set back gives nothing";
}
TEST( GRateLimit, KeepsABoundedNumberOfKeys )
{
    GRateLimit limit( 1, 2, 100 );
    for( int i = 0; i < 10000; ++i ) limit.take( std::to_string( i ), START + static_cast<uint64_t>( i ) );
    EXPECT_LE( limit.size( ), 100u );
    EXPECT_TRUE( limit.take( "9999", START + 9999 ) );
    EXPECT_FALSE( limit.take( "9999", START + 9999 ) ) << "the newest are remembered";
}
TEST( GRateLimit, AForgottenKeyIsANewOneAndItsPlaceIsUsedAgain )
{
    GRateLimitByNumber limit( 1, 1 );
    EXPECT_TRUE( limit.take( 7, START ) );
    EXPECT_FALSE( limit.take( 7, START ) );
    limit.forget( 7 );
    limit.forget( 8 );
    EXPECT_EQ( limit.size( ), 0u );
    EXPECT_TRUE( limit.take( 7, START ) );
    EXPECT_TRUE( limit.take( 9, START ) );
    EXPECT_EQ( limit.size( ), 2u );
}
TEST( GRateLimit, TheKeyThatWasUsedLongestAgoLeaves )
{
    GRateLimitByNumber limit( 0, 1, 2 );
    EXPECT_TRUE( limit.take( 1, START ) );
    EXPECT_TRUE( limit.take( 2, START ) );
    EXPECT_FALSE( limit.take( 1, START ) );
    EXPECT_TRUE( limit.take( 3, START ) ) << "2 leaves for it";
    EXPECT_FALSE( limit.take( 1, START ) );
    EXPECT_TRUE( limit.take( 2, START ) );
}
TEST( GServerConfig, ARunningServerTakesLimitsAndTellsWhatWaits )
{
    GServerConfig running;
    GServerConfig next;
    GString error;
    ASSERT_TRUE( running.finish( error ) );
    ASSERT_TRUE(
        next.parse( "logons_per_minute = 7\ncontacts = agreed\nport_base = 5000\nstore = other.db\n", error ) );
    ASSERT_TRUE( next.finish( error ) );
    const std::vector<std::string_view> waiting = running.takeLive( next );
    EXPECT_EQ( running.logonsPerMinute, 7 );
    EXPECT_TRUE( running.isAgreed( ) );
    EXPECT_EQ( running.store, "velmora-server.db" );
    EXPECT_EQ( running.logon, "127.0.0.1:4430" );
    for( const char* key : { "store", "port_base", "logon", "metrics" } )
        EXPECT_NE( std::find( waiting.begin( ), waiting.end( ), key ), waiting.end( ) ) << key;
    EXPECT_TRUE( running.takeLive( running ).empty( ) );
}
TEST( GServerConfig, ContactsAreAgreedOrOpen )
{
    GString error;
    EXPECT_TRUE( configures( "contacts = agreed", error ) );
    EXPECT_TRUE( configures( "contacts = open", error ) );
    EXPECT_FALSE( configures( "contacts = friends", error ) );
    EXPECT_EQ( error, "contacts is 'agreed' or 'open', not 'friends'" );
    EXPECT_FALSE( GServerConfig( ).isAgreed( ) ) << "without the line everyone reaches everyone, as ever";
}
TEST( GReplyCache, ForgetsByAgeAndNumber )
{
    GReplyCache cache( 10, 3 );
    cache.store( "a", "1", 100 );
    ASSERT_TRUE( cache.find( "a", 110 ) );
    EXPECT_EQ( *cache.find( "a", 110 ), "1" );
    EXPECT_FALSE( cache.find( "a", 111 ) );
    for( int i = 0; i < 100; ++i ) cache.store( std::to_string( i ), "x", 200 );
    EXPECT_LE( cache.size( ), 3u );
    EXPECT_TRUE( cache.find( "99", 200 ) );
}
TEST( GMetrics, ComposesSeriesWithTheirTypes )
{
    GMetrics metrics;
    metrics.count( "stun", "STUN", "answered" );
    metrics.count( "stun", "STUN", "answered", 2 );
    metrics.setGauge( "velmora_registrations", 4 );
    EXPECT_EQ( metrics.compose( ), "# TYPE velmora_messages_total counter\n"
                                   "velmora_messages_total{role=\"stun\",method=\"STUN\",result=\"answered\"} 3\n"
                                   "# TYPE velmora_registrations gauge\nvelmora_registrations 4\n" );
}
TEST( GServerMessage, AnswersWrittenLineByLineAreThoseThatAreComposed )
{
    for( const GWString& cseq :
         { GWString( u"5 (GDispatchService)" ), GWString( u"\u00e4 \\ \r\n\t: \u65e5" ), GWString( u"x" ) } )
    {
        GHTTPHeaders request( u"PING" );
        request.set( u"CSeq", cseq );
        GHTTPHeaders answer = GServerMessage::reply( request, 200, u"OK" );
        answer.set( u"Observed-Host", u"1.2.3.4:5" );
        answer.set( u"Reported-Host", cseq );
        GString written = "what was here before";
        GServerMessage::begin( written, request );
        GServerMessage::append( written, "Observed-Host", "1.2.3.4:5" );
        GServerMessage::append( written, "Reported-Host", cseq );
        GServerMessage::end( written );
        EXPECT_EQ( written, answer.serialize( ) );
    }
}
TEST( GServerMessage, LogTextHoldsNoLineEnds )
{
    EXPECT_EQ( GServerMessage::loggable( u"a\r\nb'c" ), "a??b?c" );
    EXPECT_EQ( GServerMessage::loggable( u"a\u009b1m\u2028\u202e\u00e9" ), "a?1m??\xc3\xa9" );
    EXPECT_EQ( GServerMessage::printable( u"it's\x1b[2J" ), "it's?[2J" );
    EXPECT_LE( GServerMessage::loggable( GWString( 1000, u'x' ) ).size( ), 100u );
}
TEST( GEndpoint, WritesWhatItReads )
{
    for( const char* host : { "0.0.0.0:0", "1.2.3.4:5", "255.255.255.255:65535", "198.51.100.20:40000" } )
    {
        boost::asio::ip::udp::endpoint endpoint;
        ASSERT_TRUE( GEndpoint::parse( host, endpoint ) );
        GString text = "before";
        GEndpoint::compose( endpoint, text );
        EXPECT_EQ( text, host );
        EXPECT_EQ( GEndpoint::compose( endpoint ), host );
    }
}
TEST( GEndpoint, ReadsStrictHostsOnly )
{
    uint32_t address = 0;
    unsigned short port = 0;
    EXPECT_TRUE( GEndpoint::parse( "1.2.3.4:65535", address, port ) );
    EXPECT_EQ( address, 0x01020304u );
    EXPECT_EQ( port, 65535 );
    for( const char* host : { "", "1.2.3.4", "1.2.3.4:", "1.2.3.4:65536", "1.2.3:4", "a.b.c.d:1", "1.2.3.4:1x",
                              " 1.2.3.4:1", "256.2.3.4:1" } )
        EXPECT_FALSE( GEndpoint::parse( host, address, port ) ) << host;
}
TEST( GRelayPolicy, NeverSendsInward )
{
    GServerConfig config;
    GRelayPolicy policy( config );
    const auto may = [&policy]( const char* host )
    {
        uint32_t address = 0;
        unsigned short port = 0;
        EXPECT_TRUE( GEndpoint::parse( host, address, port ) );
        return policy.maySendTo( address, port );
    };
    EXPECT_TRUE( may( "8.8.8.8:53" ) );
    for( const char* host :
         { "127.0.0.1:80", "10.1.1.1:80", "172.16.0.1:80", "172.31.255.255:80", "192.168.1.1:80", "169.254.1.1:80",
           "100.64.0.1:80", "224.0.0.1:80", "255.255.255.255:80", "0.0.0.0:80", "8.8.8.8:0" } )
        EXPECT_FALSE( may( host ) ) << host;
    EXPECT_TRUE( may( "172.32.0.1:80" ) );
    policy.setOwnHosts( { "127.0.0.1:4435" } );
    EXPECT_TRUE( may( "127.0.0.1:4435" ) ) << "the server's own signalling host";
    EXPECT_FALSE( may( "127.0.0.1:4436" ) );
    config.relayAllowPrivate = true;
    EXPECT_TRUE( may( "127.0.0.1:80" ) );
    EXPECT_TRUE( may( "10.1.1.1:80" ) );
    EXPECT_FALSE( may( "224.0.0.1:80" ) );
    EXPECT_FALSE( may( "255.255.255.255:80" ) );
}
TEST( GRelayPolicy, LimitsPacketsAndBytesOfEachDirection )
{
    GServerConfig config;
    config.relayPacketsPerSecond = 3;
    config.relayBytesPerSecond = 100000;
    GRelayPolicy policy( config );
    GRelayShare share;
    GRelayShare other;
    for( int i = 0; i < 3; ++i ) EXPECT_TRUE( policy.take( share.outward, 10, START ) );
    EXPECT_FALSE( policy.take( share.outward, 10, START ) );
    EXPECT_TRUE( policy.take( share.inward, 60000, START ) );
    EXPECT_FALSE( policy.take( share.inward, 60000, START ) );
    EXPECT_TRUE( policy.take( share.inward, 40000, START ) ) << "what was refused was not spent";
    EXPECT_TRUE( policy.take( other.outward, 60000, START ) );
    EXPECT_TRUE( policy.take( share.outward, 10, START + SECOND / 3 + 1 ) );
    EXPECT_FALSE( policy.take( share.outward, 10, START ) ) << "a clock set back gives nothing";
}
TEST( GRelayPolicy, ASilentClientGathersNoMoreThanASecond )
{
    GServerConfig config;
    config.relayPacketsPerSecond = 2;
    GRelayPolicy policy( config );
    GRelayShare share;
    EXPECT_TRUE( policy.take( share.outward, 10, START ) );
    for( int i = 0; i < 2; ++i ) EXPECT_TRUE( policy.take( share.outward, 10, START + 1000 * SECOND ) );
    EXPECT_FALSE( policy.take( share.outward, 10, START + 1000 * SECOND ) );
}
TEST( GRelayFrame, ReadsWhatAClientWritesAndNothingElse )
{
    GHTTPHeaders message( u"SENDUDP" );
    message.set( u"Remote-Host", u"198.51.100.7:40000" );
    message.addContent( GString( "\0\r\n\r\nx", 6 ) );
    const GString bytes = message.serialize( );
    GRelayFrame frame;
    const GString more = bytes + "SENDUDP"; // The frame shows its content where it lies.
    EXPECT_EQ( frame.read( more.data( ), more.size( ) ), bytes.size( ) );
    EXPECT_EQ( GString( frame.content, frame.contentLength ), message.getContent( 0 ) );
    EXPECT_EQ( GEndpoint::compose( boost::asio::ip::make_address_v4( frame.address ), frame.port ),
               "198.51.100.7:40000" );
    for( size_t length = 0; length < bytes.size( ); ++length )
        EXPECT_EQ( frame.read( bytes.data( ), length ), 0u ) << length;
    const GString head = "SENDUDP / HTTP/1.1\r\nContent-Length: ";
    for( const GString& other :
         { head + "1\r\nRemote-Host: 1.2.3.4:5 \r\n\r\nx", head + "01\r\nRemote-Host: 1.2.3.4:5\r\n\r\nx",
           head + "0\r\nRemote-Host: 1.2.3.4:5\r\n\r\n", head + "1,1\r\nRemote-Host: 1.2.3.4:5\r\n\r\nxx",
           head + "1\r\nRemote-Host: 1.2.3.4\r\n\r\nx", head + "1\r\nRemote-Host: 1.2.3.4:5\r\nX: y\r\n\r\nx",
           head + "999999\r\nRemote-Host: 1.2.3.4:5\r\n\r\n" + GString( 999999, 'x' ),
           GString( "OPENTURN / HTTP/1.1\r\nCSeq: 1\r\n\r\n" ) } )
        EXPECT_EQ( frame.read( other.data( ), other.size( ) ), 0u ) << other.substr( 0, 80 ) << ": the parser's work";
}
TEST( GRelayFrame, WrapsADatagramAsAMessageWouldBe )
{
    const GString data( "\0\r\n\r\n\xff", 6 );
    GHTTPHeaders message;
    message.setResponse( 200, u"OK" );
    message.set( u"Remote-Host", u"1.2.3.4:5" );
    message.addContent( data );
    boost::asio::ip::udp::endpoint from;
    ASSERT_TRUE( GEndpoint::parse( "1.2.3.4:5", from ) );
    GString out = "before";
    GRelayFrame::append( out, from, data.data( ), data.size( ) );
    EXPECT_EQ( out, "before" + message.serialize( ) );
}
TEST( GRelayFrame, ACallTakesNothingFromTheHeap )
{
    GHTTPHeaders message( u"SENDUDP" );
    message.set( u"Remote-Host", u"198.51.100.100:40000" );
    message.addContent( GString( 1000, 'x' ) );
    const GString bytes = message.serialize( );
    const GServerConfig config;
    const GRelayPolicy policy( config );
    GRelayShare share;
    GString out;
    const auto carry = [&]
    {
        GRelayFrame frame;
        EXPECT_EQ( frame.read( bytes.data( ), bytes.size( ) ), bytes.size( ) );
        EXPECT_TRUE( policy.take( share.outward, frame.contentLength, START ) );
        const boost::asio::ip::udp::endpoint from( boost::asio::ip::address_v4( frame.address ), frame.port );
        out.clear( );
        GRelayFrame::append( out, from, frame.content, frame.contentLength );
    };
    carry( );
    EXPECT_EQ( countAllocations( carry ), 0 );
}
TEST( GLogRole, SanitisesNames )
{
    EXPECT_EQ( GLogRole::sanitize( "velmora_2026_dirty.log" ), "velmora_2026_dirty.log" );
    EXPECT_EQ( GLogRole::sanitize( "../../etc/passwd" ), "passwd" );
    EXPECT_EQ( GLogRole::sanitize( "..\\x\\..hidden log~" ), "hidden_log_" );
    EXPECT_EQ( GLogRole::sanitize( "dir/" ), "" );
    EXPECT_EQ( GLogRole::sanitize( ".." ), "" );
    EXPECT_EQ( GLogRole::sanitize( GString( 500, 'a' ) ).size( ), 100u );
}
TEST( GLogRole, SplitsTheSenderAtItsLastAt )
{
    GString user;
    GString device;
    EXPECT_TRUE( GLogRole::splitSender( "ann@velmora.local@dev1", user, device ) );
    EXPECT_EQ( user, "ann@velmora.local" );
    EXPECT_EQ( device, "dev1" );
    EXPECT_TRUE( GLogRole::splitSender( "ann@velmora.local@", user, device ) );
    EXPECT_EQ( device, "unknown" );
    for( const char* from : { "", "ann", "ann@velmora.local", "../x@y@dev", "ann@velmora.local@../x" } )
        EXPECT_FALSE( GLogRole::splitSender( from, user, device ) ) << from;
}
TEST( GUpgradeRole, ServesPlainFilesOfItsFolderOnly )
{
    const TempFolder folder;
    std::ofstream( folder.path / "upgrade.exe", std::ios::binary ) << GString( "MZ\0x", 4 );
    std::ofstream( folder.path / ".secret" ) << "x";
    std::filesystem::create_directories( folder.path / "sub" );
    const GString directory = folder.path.string( );
    EXPECT_EQ( GUpgradeRole::fileOf( directory, "/upgrade.exe" ), directory + "/upgrade.exe" );
    EXPECT_EQ( GUpgradeRole::fileOf( directory, "/upgrade.exe?x=1" ), directory + "/upgrade.exe" );
    for( const char* path : { "", "/", "upgrade.exe", "/.secret", "/../upgrade.exe", "/sub", "/sub/../upgrade.exe",
                              "//upgrade.exe", "/none" } )
        EXPECT_EQ( GUpgradeRole::fileOf( directory, path ), "" ) << path;
    GHTTPHeaders get;
    get.set( u"", u"GET /upgrade.exe HTTP/1.1" );
    uint64_t size = 0;
    EXPECT_EQ( GUpgradeRole::headerOf( get, directory + "/upgrade.exe", size ),
               "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n" );
    EXPECT_EQ( size, 4u );
    for( const GString& none : { GString( ), directory + "/gone" } )
    {
        EXPECT_EQ( parsed( GUpgradeRole::headerOf( get, none, size ) ).getResponse( ), 404 );
        EXPECT_EQ( size, 0u );
    }
}
TEST( GPassword, VerifiesItsOwnHashesOnly )
{
    ASSERT_TRUE( GPasswordInitialize( ) );
    const GPasswordLimits limits{ 1, 8192 };
    const GString hash = GPasswordHash( "secret", limits );
    EXPECT_TRUE( hash.starts_with( "$argon2id$" ) );
    EXPECT_NE( hash, GPasswordHash( "secret", limits ) );
    EXPECT_TRUE( GPasswordVerify( hash, "secret", limits ) );
    EXPECT_FALSE( GPasswordVerify( hash, "Secret", limits ) );
    EXPECT_FALSE( GPasswordVerify( "", "", limits ) );
}
TEST( GServerStore, WhatWasStoredIsThereAfterAReopening )
{
    const TempFolder folder;
    const GString path = ( folder.path / "store.db" ).string( );
    GString error;
    {
        GServerStore store;
        ASSERT_TRUE( store.open( path, error ) ) << error;
        EXPECT_TRUE( store.addAccount( { "ann@x", "h", "e", 1 } ) );
        EXPECT_FALSE( store.addAccount( { "ann@x", "other", "e", 1 } ) ) << "taken";
        EXPECT_TRUE( store.putRegistration( { "ann@x", "dev", "1.2.3.4:5", "l", "r", "764", 99, true } ) );
        EXPECT_TRUE( store.setBuddies( "ann@x", { "c@x", "b@x" } ) );
    }
    GServerStore store;
    ASSERT_TRUE( store.open( path, error ) ) << error;
    EXPECT_EQ( store.getAccount( "ann@x" )->hash, "h" );
    ASSERT_EQ( store.listRegistrations( ).size( ), 1u );
    EXPECT_EQ( store.listRegistrations( )[0].expires, 99u );
    EXPECT_TRUE( store.listRegistrations( )[0].listed );
    EXPECT_EQ( store.getBuddies( "ann@x" ), ( std::vector<GString>{ "c@x", "b@x" } ) );
}
TEST( GServerStore, ABatchIsThereForOthersOnlyAtItsEnd )
{
    const TempFolder folder;
    const GString path = ( folder.path / "store.db" ).string( );
    GString error;
    GServerStore store;
    GServerStore other;
    ASSERT_TRUE( store.open( path, error ) && other.open( path, error ) ) << error;
    store.beginBatch( );
    EXPECT_FALSE( store.hasDevice( "dev" ) );
    EXPECT_TRUE( store.addDevice( "dev", 1 ) );
    EXPECT_TRUE( store.setBuddies( "ann@x", { "ben@x" } ) );
    EXPECT_TRUE( store.hasDevice( "dev" ) );
    EXPECT_FALSE( other.hasDevice( "dev" ) );
    EXPECT_TRUE( store.endBatch( ) );
    EXPECT_TRUE( other.hasDevice( "dev" ) );
    EXPECT_EQ( other.getBuddies( "ann@x" ).size( ), 1u );
    store.beginBatch( );
    EXPECT_TRUE( store.endBatch( ) ) << "an empty one";
    EXPECT_TRUE( other.addDevice( "free", 1 ) ) << "and nothing stays locked";
}
TEST( GServerStore, AnotherPasswordEndsOldLogons )
{
    GServerStore store;
    GString error;
    ASSERT_TRUE( store.open( ":memory:", error ) );
    store.addAccount( { "ann@x", "h", "e", 1 } );
    store.addLogon( "ann@x", "1.2.3.4", 100 );
    EXPECT_TRUE( store.hasLogon( "ann@x", "1.2.3.4", 100 ) );
    EXPECT_FALSE( store.hasLogon( "ann@x", "1.2.3.4", 101 ) );
    EXPECT_TRUE( store.setPassword( "ann@x", "h2" ) );
    EXPECT_FALSE( store.hasAnyLogon( "1.2.3.4", 0 ) );
    EXPECT_FALSE( store.setPassword( "nobody@x", "h" ) );
}
