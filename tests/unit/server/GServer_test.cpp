// The whole server on loopback sockets with free ports, asked through plain blocking sockets with a deadline.
#include "server/GServer.h"

#include "server/GServerCommands.h"
#include "unit/server/ServerFixture.h"

#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>

#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>

namespace
{
namespace ip = boost::asio::ip;

// A silent peer ends a test after this long; no test waits for it when things are right.
constexpr timeval DEADLINE{ 10, 0 };

template <typename Socket>
void setDeadline( Socket& socket )
{
    ::setsockopt( socket.native_handle( ), SOL_SOCKET, SO_RCVTIMEO, &DEADLINE, sizeof( DEADLINE ) );
}

class UDPClient
{
public:
    UDPClient( ) : _socket( _io, ip::udp::endpoint( ip::make_address( "127.0.0.1" ), 0 ) ) { setDeadline( _socket ); }
    GString host( ) const { return GEndpoint::compose( _socket.local_endpoint( ) ); }
    void send( const GString& to, const GString& bytes )
    {
        ip::udp::endpoint endpoint;
        ASSERT_TRUE( GEndpoint::parse( to, endpoint ) ) << to;
        _socket.send_to( boost::asio::buffer( bytes ), endpoint );
    }
    GString recv( GString* from = nullptr )
    {
        GString buffer( 65536, '\0' );
        sockaddr_in address{ };
        socklen_t size = sizeof( address );
        const ssize_t length = ::recvfrom( _socket.native_handle( ), buffer.data( ), buffer.size( ), 0,
                                           reinterpret_cast<sockaddr*>( &address ), &size );
        buffer.resize( static_cast<size_t>( std::max<ssize_t>( length, 0 ) ) );
        if( from )
            *from = GEndpoint::compose( ip::address_v4( ntohl( address.sin_addr.s_addr ) ), ntohs( address.sin_port ) );
        return buffer;
    }
    GHTTPHeaders ask( const GString& to, const GHTTPHeaders& message )
    {
        send( to, message.serialize( ) );
        return parsed( recv( ) );
    }

private:
    boost::asio::io_context _io;
    ip::udp::socket _socket;
};

class TCPClient
{
public:
    explicit TCPClient( const GString& host ) : _socket( _io )
    {
        ip::tcp::endpoint endpoint;
        EXPECT_TRUE( GEndpoint::parse( host, endpoint ) ) << host;
        _socket.connect( endpoint );
        setDeadline( _socket );
    }
    void send( const GString& bytes ) { boost::asio::write( _socket, boost::asio::buffer( bytes ) ); }
    void endSending( ) { _socket.shutdown( ip::tcp::socket::shutdown_send ); }
    // The next whole message; empty when the other side ended.
    GHTTPHeaders recv( )
    {
        GHTTPHeaders message;
        char block[4096];
        for( ;; )
        {
            if( const int taken = message.deserialize( _buffer ) )
            {
                _buffer.erase( 0, static_cast<size_t>( taken ) );
                return message;
            }
            const ssize_t length = ::recv( _socket.native_handle( ), block, sizeof( block ), 0 );
            if( length <= 0 ) return { };
            _buffer.append( block, static_cast<size_t>( length ) );
        }
    }
    bool ended( ) { return recv( ).headers( ).empty( ); }

private:
    boost::asio::io_context _io;
    ip::tcp::socket _socket;
    GString _buffer;
};

class GServerTest : public testing::Test
{
protected:
    GServerTest( )
        : folder( std::filesystem::temp_directory_path( ) / ( "velmora-server-" + GPasswordRandomText( 12 ) ) )
    {
        std::filesystem::create_directories( folder / "upgrade" );
        GString error;
        config.portBase = 0;
        config.store = ( folder / "store.db" ).string( );
        config.logDirectory = ( folder / "logs" ).string( );
        config.upgradeDirectory = ( folder / "upgrade" ).string( );
        config.passwordMemoryKiB = 8;
        config.passwordPasses = 1;
        config.relayAllowPrivate = true;
        EXPECT_TRUE( config.finish( error ) ) << error;
    }
    ~GServerTest( ) override
    {
        stop( );
        std::filesystem::remove_all( folder );
    }
    void start( )
    {
        GString error;
        server = std::make_unique<GServer>( config, GString( ) );
        ASSERT_TRUE( server->open( error ) ) << error;
        thread = std::thread( [this] { server->run( ); } );
    }
    void stop( )
    {
        if( !server ) return;
        server->stop( );
        if( thread.joinable( ) ) thread.join( );
        server.reset( );
    }
    GHTTPHeaders logon( const GWString& from = u"ann", const GWString& password = u"secret" )
    {
        TCPClient client( server->logonHost( ) );
        client.send(
            request( u"AUTHENTICATE", 0,
                     { { u"From", from }, { u"Password", password }, { u"Email", u"a@b" }, { u"Version", u"764" } } )
                .serialize( ) );
        client.endSending( );
        return client.recv( );
    }
    // Logs on, fetches an identity and registers; the identity.
    GWString enter( UDPClient& client, const GWString& name )
    {
        EXPECT_EQ( logon( name ).getResponse( ), 200 );
        const GString host = server->hosts( ).signalling.at( 0 );
        const GWString device = client.ask( host, request( u"DEVICEGUID", 1 ) ).get( u"Device-GUID" );
        EXPECT_EQ( registerAt( client, name, device ), 200 );
        return device;
    }
    int registerAt( UDPClient& client, const GWString& name, const GWString& device )
    {
        return client
            .ask( server->hosts( ).signalling.at( 0 ),
                  request( u"REGISTER", 2,
                           { { u"From", name + u"@velmora.local" },
                             { u"Device-GUID", device },
                             { u"Version", u"764" },
                             { u"Route-List", u"local://" + GUTF8ToWide( client.host( ) ) } } ) )
            .getResponse( );
    }
    // Figures of the relay, read in the server's own thread.
    uint64_t metricOf( std::string_view method, std::string_view result )
    {
        std::promise<uint64_t> value;
        boost::asio::post( server->io( ),
                           [&] { value.set_value( server->metrics( ).get( "relay", method, result ) ); } );
        return value.get_future( ).get( );
    }
    std::filesystem::path folder;
    GServerConfig config;
    std::unique_ptr<GServer> server;
    std::thread thread;
};
} // namespace

TEST_F( GServerTest, AHalfClosedLogonIsAnsweredWithHostsThatListen )
{
    start( );
    const GHTTPHeaders answer = logon( );
    EXPECT_EQ( answer.getResponse( ), 200 );
    GStringList stun;
    EXPECT_TRUE( answer.get( u"STUN-Host-List", stun ) );
    EXPECT_EQ( stun.size( ), 4u );
    for( const GWString& host : stun ) EXPECT_FALSE( host.ends_with( u":0" ) );
    EXPECT_NE( server->readyLine( ).find( "ready logon=" + server->logonHost( ) + " stun=" ), GString::npos );
    EXPECT_EQ( logon( u"ann@velmora.local", u"wrong" ).getResponse( ), 403 );
    EXPECT_EQ( logon( u"ann@velmora.local" ).getResponse( ), 200 );
}
TEST_F( GServerTest, StunAnswersFromThreeSockets )
{
    start( );
    UDPClient client;
    const std::vector<GString> hosts = server->hosts( ).stun;
    client.send( hosts[1], "HOLEPUNCH" );
    client.send( hosts[0], request( u"STUN", 4 ).serialize( ) );
    std::vector<GString> sources;
    for( int i = 0; i < 3; ++i )
    {
        GString from;
        const GHTTPHeaders answer = parsed( client.recv( &from ) );
        EXPECT_EQ( answer.getResponse( ), 200 );
        EXPECT_EQ( answer.get( u"Global-Host" ), from == hosts[0] ? GUTF8ToWide( client.host( ) ) : GWString( ) );
        sources.push_back( from );
    }
    std::sort( sources.begin( ), sources.end( ) );
    std::vector<GString> expected( hosts.begin( ), hosts.begin( ) + 3 );
    std::sort( expected.begin( ), expected.end( ) );
    EXPECT_EQ( sources, expected );
    GString from;
    client.send( hosts[3], request( u"STUN", 5, { { u"Delay", u"1000" } } ).serialize( ) );
    EXPECT_EQ( parsed( client.recv( &from ) ).get( u"CSeq" ), u"5 (GDispatchService)" );
    EXPECT_EQ( from, hosts[3] );
}
TEST_F( GServerTest, AnInviteTravelsToTheOtherDevice )
{
    start( );
    UDPClient ann;
    UDPClient ben;
    const GWString annDevice = enter( ann, u"ann" );
    const GWString benDevice = enter( ben, u"ben" );
    const GHTTPHeaders invite = request( u"INVITE", 9,
                                         { { u"From", u"ann@velmora.local" },
                                           { u"From-Device-GUID", annDevice },
                                           { u"To", u"ben@velmora.local" },
                                           { u"Try-Route-List", u"local://" + GUTF8ToWide( ann.host( ) ) } } );
    const GHTTPHeaders answer = ann.ask( server->hosts( ).signalling.at( 0 ), invite );
    EXPECT_EQ( answer.getResponse( ), 100 );
    EXPECT_EQ( answer.get( u"Device-List" ), benDevice );
    EXPECT_EQ( answer.get( benDevice + u"-Route-List" ), u"local://" + GUTF8ToWide( ben.host( ) ) );
    EXPECT_EQ( ben.recv( ), invite.serialize( ) );
}
TEST_F( GServerTest, RegistrationsAndIdentitiesComeBackAfterARestart )
{
    start( );
    UDPClient ann;
    const GWString device = enter( ann, u"ann" );
    stop( );
    start( );
    const GHTTPHeaders list = ann.ask( server->hosts( ).signalling.at( 0 ),
                                       request( u"GETBUDDYLIST", 3, { { u"From", u"ann@velmora.local" } } ) );
    EXPECT_EQ( list.getResponse( ), 200 );
    EXPECT_EQ( registerAt( ann, u"ann", device ), 200 );
}
TEST_F( GServerTest, TheRelayCarriesDatagramsBothWaysAndRegistersItsClient )
{
    start( );
    EXPECT_EQ( logon( ).getResponse( ), 200 );
    TCPClient client( server->hosts( ).relay );
    client.send( request( u"OPENTURN", 3 ).serialize( ) );
    const GHTTPHeaders opened = client.recv( );
    EXPECT_EQ( opened.getResponse( ), 200 );
    EXPECT_FALSE( opened.hasContent( ) );
    const GString global = GWideToUTF8( opened.get( u"Global-Host" ) );

    UDPClient peer;
    peer.send( global, "from outside" );
    const GHTTPHeaders relayed = client.recv( );
    EXPECT_EQ( relayed.getResponse( ), 200 );
    EXPECT_EQ( relayed.get( u"Remote-Host" ), GUTF8ToWide( peer.host( ) ) );
    EXPECT_EQ( relayed.getContent( 0 ), "from outside" );

    const auto relay = [&client]( const GString& to, const GString& bytes )
    {
        GHTTPHeaders message( u"SENDUDP" );
        message.set( u"Remote-Host", GUTF8ToWide( to ) );
        message.addContent( bytes );
        client.send( message.serialize( ) );
    };
    relay( peer.host( ), "to outside" );
    GString from;
    EXPECT_EQ( peer.recv( &from ), "to outside" );
    EXPECT_EQ( from, global );

    relay( server->hosts( ).signalling.at( 0 ), request( u"DEVICEGUID", 1 ).serialize( ) );
    const GHTTPHeaders identity = parsed( client.recv( ).getContent( 0 ) );
    EXPECT_EQ( identity.getResponse( ), 200 );
    relay( server->hosts( ).signalling.at( 0 ), request( u"REGISTER", 2,
                                                         { { u"From", u"ann@velmora.local" },
                                                           { u"Device-GUID", identity.get( u"Device-GUID" ) },
                                                           { u"Version", u"764" },
                                                           { u"Route-List", u"turn://" + GUTF8ToWide( global ) } } )
                                                    .serialize( ) );
    EXPECT_EQ( parsed( client.recv( ).getContent( 0 ) ).getResponse( ), 200 );
}
TEST_F( GServerTest, TheRelayKeepsTheOrderOfFramesOfEveryForm )
{
    start( );
    EXPECT_EQ( logon( ).getResponse( ), 200 );
    TCPClient client( server->hosts( ).relay );
    client.send( request( u"OPENTURN", 3 ).serialize( ) );
    EXPECT_EQ( client.recv( ).getResponse( ), 200 );
    UDPClient peer;
    GString stream;
    std::vector<GString> sent;
    for( int i = 0; i < 60; ++i ) // As many as the peer's own socket can hold.
    {
        GHTTPHeaders message( u"SENDUDP" );
        if( i % 7 == 3 ) message.set( u"X-Other", u"makes it a message for the parser" );
        message.set( u"Remote-Host", GUTF8ToWide( peer.host( ) ) );
        sent.push_back( std::to_string( i ) + GString( i % 11 ? 1000 : 20 * static_cast<size_t>( i ), 'x' ) );
        message.addContent( sent.back( ) );
        stream += message.serialize( );
    }
    for( size_t begin = 0; begin < stream.size( ); begin += 1701 ) client.send( stream.substr( begin, 1701 ) );
    for( const GString& bytes : sent ) ASSERT_EQ( peer.recv( ), bytes );
}
TEST_F( GServerTest, ARelayedClientReachesNotItself )
{
    start( );
    EXPECT_EQ( logon( ).getResponse( ), 200 );
    TCPClient client( server->hosts( ).relay );
    client.send( request( u"OPENTURN", 3 ).serialize( ) );
    const GWString own = client.recv( ).get( u"Global-Host" );
    GHTTPHeaders message( u"SENDUDP" );
    message.set( u"Remote-Host", own );
    message.addContent( "round and round" );
    client.send( message.serialize( ) );
    client.send( request( u"OPENTURN", 4 ).serialize( ) );
    EXPECT_EQ( client.recv( ).get( u"CSeq" ), u"4 (GDispatchService)" ) << "the next thing that comes";
    EXPECT_EQ( metricOf( "SENDUDP", "forbidden" ), 1u );
}
TEST_F( GServerTest, ASlowReaderLosesWholeDatagramsAndNobodyWaits )
{
    config.relayBytesPerSecond = 1000000000;
    config.relayPacketsPerSecond = 1000000;
    start( );
    EXPECT_EQ( logon( ).getResponse( ), 200 );
    TCPClient client( server->hosts( ).relay );
    client.send( request( u"OPENTURN", 3 ).serialize( ) );
    const GString own = GWideToUTF8( client.recv( ).get( u"Global-Host" ) );
    UDPClient peer;
    const GString bytes( 60000, 'x' );
    uint64_t rounds = 0;
    do
    {
        for( int i = 0; i < 50; ++i ) peer.send( own, bytes );
        // An answer from the same thread: it is not held up.
        EXPECT_EQ(
            peer.ask( server->hosts( ).signalling.at( 0 ), request( u"PING", 5, { { u"Global-Host", u"1.2.3.4:5" } } ) )
                .getResponse( ),
            200 );
    } while( !metricOf( "datagram", "shed" ) && ++rounds < 1000 );
    EXPECT_GT( metricOf( "datagram", "shed" ), 0u );
    for( int i = 0; i < 5; ++i )
    {
        const GHTTPHeaders relayed = client.recv( );
        ASSERT_EQ( relayed.getResponse( ), 200 );
        ASSERT_EQ( relayed.getContent( 0 ).size( ), bytes.size( ) ) << "never a part of one";
    }
}
TEST_F( GServerTest, TheRelayIsOnlyForAddressesThatLoggedOn )
{
    start( );
    TCPClient client( server->hosts( ).relay );
    client.send( request( u"OPENTURN", 3 ).serialize( ) );
    EXPECT_EQ( client.recv( ).getResponse( ), 403 );
    EXPECT_TRUE( client.ended( ) );
    TCPClient other( server->hosts( ).relay );
    GHTTPHeaders message( u"SENDUDP" );
    message.set( u"Remote-Host", u"127.0.0.1:9" );
    message.addContent( "x" );
    other.send( message.serialize( ) );
    EXPECT_TRUE( other.ended( ) );
}
TEST_F( GServerTest, ALogFileIsOnDiskWhenItsAnswerLeaves )
{
    config.logBytes = 1000;
    start( );
    EXPECT_EQ( logon( ).getResponse( ), 200 );
    const auto upload = [this]( const GWString& from, const GWString& name, const GString& bytes )
    {
        GHTTPHeaders message( u"LOGFILE" );
        message.set( u"From", from );
        message.set( u"Filename", name );
        message.addContent( bytes );
        TCPClient client( server->hosts( ).log );
        client.send( message.serialize( ) );
        return client.recv( ).getResponse( );
    };
    EXPECT_EQ( upload( u"ann@velmora.local@dev1", u"../velmora_1_clean.log", "some text" ), 200 );
    std::ifstream file( folder / "logs/ann@velmora.local/dev1/velmora_1_clean.log" );
    std::ostringstream text;
    text << file.rdbuf( );
    EXPECT_EQ( text.str( ), "some text" );
    EXPECT_EQ( upload( u"ben@velmora.local@dev1", u"x.log", "text" ), 403 );
    EXPECT_EQ( upload( u"ann@velmora.local@dev1", u"..", "text" ), 400 );
    EXPECT_EQ( upload( u"ann@velmora.local@dev1", u"big.log", GString( 1001, 'x' ) ), 413 );
}
TEST_F( GServerTest, TheUpgradeIsFetchedWithGet )
{
    std::ofstream( folder / "upgrade/upgrade.exe" ) << "program";
    start( );
    TCPClient client( server->hosts( ).upgrade );
    client.send( "GET /upgrade.exe HTTP/1.1\r\nUser-Agent: Velmora/764\r\nAccept: */*\r\nHost: x\r\n\r\n" );
    const GHTTPHeaders answer = client.recv( );
    EXPECT_EQ( answer.getResponse( ), 200 );
    EXPECT_EQ( answer.getContent( 0 ), "program" );
    TCPClient other( server->hosts( ).upgrade );
    other.send( "GET /none HTTP/1.1\r\n\r\n" );
    EXPECT_EQ( other.recv( ).getResponse( ), 404 );
}
TEST_F( GServerTest, MetricsCountWhatHappened )
{
    start( );
    logon( );
    TCPClient client( server->metricsHost( ) );
    client.send( "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n" );
    EXPECT_NE( client.recv( ).getContent( 0 ).find(
                   "velmora_messages_total{role=\"logon\",method=\"AUTHENTICATE\",result=\"200\"} 1" ),
               GString::npos );
}
TEST_F( GServerTest, StreamsThatCannotBecomeAMessageAreEnded )
{
    start( );
    for( const GString& bytes : { GString( 20000, 'x' ), GString( "no colon here\r\nbad line\r\n\r\n" ),
                                  GString( "AUTHENTICATE / HTTP/1.1\r\nContent-Length: 99999999\r\n\r\n" ),
                                  GString( "AUTHENTICATE / HTTP/1.1\r\nContent-Length: -5\r\n\r\n" ) } )
    {
        TCPClient client( server->logonHost( ) );
        client.send( bytes );
        EXPECT_TRUE( client.ended( ) );
    }
    EXPECT_EQ( logon( ).getResponse( ), 200 ) << "and the others go on";
}
TEST_F( GServerTest, OneAddressHasALimitOfConnections )
{
    config.connectionsPerAddress = 2;
    start( );
    TCPClient first( server->logonHost( ) );
    TCPClient second( server->logonHost( ) );
    TCPClient third( server->logonHost( ) );
    EXPECT_TRUE( third.ended( ) );
}
TEST_F( GServerTest, ADrainingServerAnswersWhatHasBegunAndEnds )
{
    start( );
    boost::asio::post( server->io( ), [this] { server->drain( ); } );
    thread.join( );
    EXPECT_NE( server->store( ).getValue( "ready" ).find( "ready " ), GString::npos );
}
TEST_F( GServerTest, StatusTellsAServerThatNobodyHasAskedYet )
{
    start( );
    std::ostringstream out;
    EXPECT_EQ( GServerCommands::run( config, { "status" }, out, out ), 0 );
    EXPECT_TRUE( out.str( ).starts_with( "running\nlogon=" ) );
}
TEST_F( GServerTest, CommandsManageAccountsWhileItRuns )
{
    start( );
    std::ostringstream out;
    std::ostringstream err;
    const auto run = [&]( const std::vector<GString>& arguments )
    { return GServerCommands::run( config, arguments, out, err ); };
    EXPECT_EQ( run( { "user", "add", "ann", "secret", "a@b" } ), 0 );
    EXPECT_EQ( run( { "user", "add", "ann", "secret" } ), 1 );
    EXPECT_EQ( run( { "user", "add", "Bad Name", "secret" } ), 1 );
    EXPECT_EQ( run( { "user", "add", "ben@velmora.local", "secret" } ), 0 );
    EXPECT_EQ( run( { "buddy", "add", "ann", "ben" } ), 0 );
    EXPECT_EQ( run( { "buddy", "add", "ann", "carl" } ), 1 );
    EXPECT_EQ( logon( u"ann@velmora.local" ).getResponse( ), 200 );
    EXPECT_EQ( run( { "user", "passwd", "ann", "changed" } ), 0 );
    EXPECT_EQ( logon( u"ann@velmora.local" ).getResponse( ), 403 );
    EXPECT_EQ( logon( u"ann@velmora.local", u"changed" ).getResponse( ), 200 );
    EXPECT_EQ( run( { "user", "remove", "ben" } ), 0 );
    EXPECT_EQ( run( { "user", "remove", "ben" } ), 1 );
    out.str( "" );
    EXPECT_EQ( run( { "user", "list" } ), 0 );
    EXPECT_EQ( out.str( ), "ann@velmora.local\ta@b\n" );
    EXPECT_EQ( run( { "status" } ), 0 );
    EXPECT_NE( out.str( ).find( "running" ), GString::npos );
    EXPECT_EQ( run( { "user" } ), 2 );
    stop( );
    EXPECT_EQ( run( { "status" } ), 1 );
}
