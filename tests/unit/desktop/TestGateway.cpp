#include "unit/desktop/TestGateway.h"

#include <arpa/inet.h>
#include <array>
#include <fcntl.h>
#include <filesystem>
#include <netinet/in.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr char GROUP[] = "239.255.255.250";
constexpr int SEARCH_PORT = 1900;
constexpr int PASS_MS = 20;
const std::string DEVICE = "urn:schemas-upnp-org:device:InternetGatewayDevice:1";
const std::string SERVICE = "urn:schemas-upnp-org:service:WANIPConnection:1";

sockaddr_in loopback( int port, in_addr_t address = htonl( INADDR_LOOPBACK ) )
{
    sockaddr_in host{ };
    host.sin_family = AF_INET;
    host.sin_port = htons( static_cast<uint16_t>( port ) );
    host.sin_addr.s_addr = address;
    return host;
}
int openBound( int type, const sockaddr_in& host )
{
    const int socket = ::socket( AF_INET, type | SOCK_CLOEXEC, 0 );
    const int on = 1;
    setsockopt( socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof( on ) );
    if( bind( socket, reinterpret_cast<const sockaddr*>( &host ), sizeof( host ) ) == 0 ) return socket;
    close( socket );
    return -1;
}
// The text of an element, or nothing.
std::string element( const std::string& text, const std::string& name )
{
    const size_t from = text.find( "<" + name + ">" );
    const size_t to = text.find( "</" + name + ">" );
    if( from == std::string::npos || to == std::string::npos ) return "";
    return text.substr( from + name.size( ) + 2, to - from - name.size( ) - 2 );
}
// The service that tells of the wide-area side must be there for a client to take this for a gateway.
std::string describe( )
{
    const auto device = []( const std::string& type, const std::string& inside )
    { return "<device><deviceType>urn:schemas-upnp-org:device:" + type + ":1</deviceType>" + inside + "</device>"; };
    const auto service = []( const std::string& type, const std::string& path )
    {
        return "<serviceList><service><serviceType>" + type +
               "</serviceType><serviceId>urn:upnp-org:serviceId:" + path + "</serviceId><controlURL>/" + path +
               "</controlURL><eventSubURL>/event</eventSubURL>" +
               "<SCPDURL>/scpd.xml</SCPDURL></service></serviceList>";
    };
    const auto list = []( const std::string& inside ) { return "<deviceList>" + inside + "</deviceList>"; };
    const std::string connection = device( "WANConnectionDevice", service( SERVICE, "connection" ) );
    const std::string common = service( "urn:schemas-upnp-org:service:WANCommonInterfaceConfig:1", "common" );
    return "<?xml version=\"1.0\"?><root xmlns=\"urn:schemas-upnp-org:device-1-0\">" +
           device( "InternetGatewayDevice", list( device( "WANDevice", common + list( connection ) ) ) ) + "</root>";
}
std::string reply( const std::string& status, const std::string& body )
{
    return "HTTP/1.1 " + status +
           "\r\nContent-Type: text/xml\r\nConnection: close\r\nContent-Length: " + std::to_string( body.size( ) ) +
           "\r\n\r\n" + body;
}
std::string soap( const std::string& body )
{
    return "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body>" + body +
           "</s:Body></s:Envelope>";
}
} // namespace

TestGateway::TestGateway( int refusals, bool describes, const std::string& address )
    : _refusals( refusals ), _describes( describes ), _address( address )
{
    const std::filesystem::path path = std::filesystem::temp_directory_path( ) / "velmora_test_gateway.lock";
    _lock = open( path.c_str( ), O_RDWR | O_CREAT | O_CLOEXEC, 0666 );
    flock( _lock, LOCK_EX );
    _search = openBound( SOCK_DGRAM, loopback( SEARCH_PORT, inet_addr( GROUP ) ) );
    const ip_mreq membership{ { inet_addr( GROUP ) }, { htonl( INADDR_LOOPBACK ) } };
    setsockopt( _search, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof( membership ) );
    _listener = openBound( SOCK_STREAM, loopback( 0 ) );
    listen( _listener, 8 );
    sockaddr_in host{ };
    socklen_t size = sizeof( host );
    getsockname( _listener, reinterpret_cast<sockaddr*>( &host ), &size );
    _port = ntohs( host.sin_port );
    _thread = std::thread( &TestGateway::_run, this );
}

TestGateway::~TestGateway( )
{
    _stop = true;
    _thread.join( );
    close( _listener );
    close( _search );
    close( _lock );
}

std::vector<TestGateway::Mapping> TestGateway::mappings( )
{
    const std::scoped_lock lock( _mutex );
    return _mappings;
}

void TestGateway::_run( )
{
    while( !_stop )
    {
        std::array<pollfd, 2> set{ pollfd{ _search, POLLIN, 0 }, pollfd{ _listener, POLLIN, 0 } };
        if( poll( set.data( ), set.size( ), PASS_MS ) < 1 ) continue;
        if( set[0].revents ) _answerSearch( );
        if( set[1].revents ) _answerRequest( );
    }
}

void TestGateway::_answerSearch( )
{
    std::array<char, 2048> buffer;
    sockaddr_in from{ };
    socklen_t size = sizeof( from );
    const ssize_t length =
        recvfrom( _search, buffer.data( ), buffer.size( ), 0, reinterpret_cast<sockaddr*>( &from ), &size );
    if( length < 1 || std::string( buffer.data( ), static_cast<size_t>( length ) ).find( DEVICE ) == std::string::npos )
        return;
    const std::string text = "HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=120\r\nEXT:\r\nST: " + DEVICE +
                             "\r\nUSN: uuid:1::" + DEVICE +
                             "\r\nLOCATION: http://127.0.0.1:" + std::to_string( _port ) + "/root.xml\r\n\r\n";
    const int socket = ::socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
    sendto( socket, text.data( ), text.size( ), 0, reinterpret_cast<sockaddr*>( &from ), size );
    close( socket );
}

void TestGateway::_answerRequest( )
{
    const int stream = accept( _listener, nullptr, nullptr );
    std::string request;
    std::array<char, 2048> buffer;
    const auto isWhole = [&]
    {
        const size_t end = request.find( "\r\n\r\n" );
        if( end == std::string::npos ) return false;
        const size_t at = request.find( "Content-Length: " );
        return at == std::string::npos || request.size( ) >= end + 4 + std::stoul( request.substr( at + 16 ) );
    };
    while( !isWhole( ) )
    {
        const ssize_t length = recv( stream, buffer.data( ), buffer.size( ), 0 );
        if( length < 1 ) break;
        request.append( buffer.data( ), static_cast<size_t>( length ) );
    }
    const std::string text = _answer( request );
    send( stream, text.data( ), text.size( ), MSG_NOSIGNAL );
    close( stream );
}

std::string TestGateway::_answer( const std::string& request )
{
    if( !_describes ) return reply( "404 Not Found", "" );
    return request.starts_with( "GET " ) ? reply( "200 OK", describe( ) ) : _control( request );
}

std::string TestGateway::_control( const std::string& request )
{
    const auto good = []( const std::string& action, const std::string& inside = "" )
    {
        return reply( "200 OK", soap( "<u:" + action + "Response xmlns:u=\"" + SERVICE + "\">" + inside +
                                      "</u:" + action + "Response>" ) );
    };
    if( request.find( "#GetStatusInfo" ) != std::string::npos )
        return good( "GetStatusInfo", "<NewConnectionStatus>Connected</NewConnectionStatus><NewLastConnectionError>"
                                      "ERROR_NONE</NewLastConnectionError><NewUptime>1</NewUptime>" );
    if( request.find( "#GetExternalIPAddress" ) != std::string::npos )
        return good( "GetExternalIPAddress", "<NewExternalIPAddress>" + _address + "</NewExternalIPAddress>" );
    const std::string action =
        request.find( "#AddPortMapping" ) != std::string::npos ? "AddPortMapping" : "DeletePortMapping";
    const std::scoped_lock lock( _mutex );
    _mappings.push_back( { action, element( request, "NewExternalPort" ), element( request, "NewProtocol" ),
                           element( request, "NewInternalPort" ), element( request, "NewInternalClient" ),
                           element( request, "NewPortMappingDescription" ) } );
    if( action == "DeletePortMapping" || _refusals-- <= 0 ) return good( action );
    return reply(
        "500 Internal Server Error",
        soap( "<s:Fault><faultcode>s:Client</faultcode><faultstring>UPnPError</faultstring><detail>"
              "<UPnPError xmlns=\"urn:schemas-upnp-org:control-1-0\"><errorCode>718</errorCode>"
              "<errorDescription>ConflictInMappingEntry</errorDescription></UPnPError></detail></s:Fault>" ) );
}
