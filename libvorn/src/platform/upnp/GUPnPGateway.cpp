#include "GUPnPGateway.h"

#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GNet.h"
#include "platform/GTime.h"

#include <algorithm>
#include <miniupnpc/igd_desc_parse.h>
#include <miniupnpc/miniupnpc.h>

namespace
{
constexpr char16_t SEARCH_HOST[] = u"239.255.255.250:1900";
constexpr uint64_t SEARCH_TIME = 2500000;
constexpr uint64_t DESCRIBE_TIME = 10000000; // One that keeps us waiting must not keep others away.
constexpr uint64_t SEARCH_PERIOD = 700000;   // Datagrams get lost: the question is asked again.
constexpr int64_t SEARCH_WAIT = 100000;
constexpr size_t MAX_URLS = 8;
constexpr int MAX_DATAGRAMS = 64; // In one pass.
constexpr int SUCCESS = 200;

// What a gateway calls itself.
constexpr std::string_view KINDS[] = {
    "urn:schemas-upnp-org:device:InternetGatewayDevice:1", "urn:schemas-upnp-org:device:InternetGatewayDevice:2",
    "urn:schemas-upnp-org:service:WANIPConnection:1", "urn:schemas-upnp-org:service:WANPPPConnection:1" };
constexpr std::string_view COMMON_SERVICE = "urn:schemas-upnp-org:service:WANCommonInterfaceConfig:";

void ask( GNetUDPPort* port )
{
    for( const std::string_view kind : KINDS )
    {
        const GString text = "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nST: " + GString( kind ) +
                             "\r\nMAN: \"ssdp:discover\"\r\nMX: 1\r\n\r\n";
        GNetUDPPortSend( port, SEARCH_HOST, text.data( ), static_cast<int>( text.size( ) ) );
    }
}

// Where a gateway describes itself, of its answer to a search; empty when that is none.
GString locationOf( const GString& datagram )
{
    if( !datagram.starts_with( "HTTP/1." ) ) return { };
    const GString lower = GToLower( datagram );
    constexpr std::string_view NAME = "\nlocation:";
    const size_t at = lower.find( NAME );
    if( at == GString::npos ) return { };
    const size_t from = datagram.find_first_not_of( ' ', at + NAME.size( ) );
    if( from == GString::npos ) return { };
    return datagram.substr( from, datagram.find_first_of( "\r\n", from ) - from );
}

// The description's own words go back to the gateway in headers and elements.
bool isService( const GString& text )
{
    const auto isFine = []( char c )
    {
        return GWITHIN( 'a', c, 'z' ) || GWITHIN( 'A', c, 'Z' ) || GWITHIN( '0', c, '9' ) || c == ':' || c == '-' ||
               c == '.' || c == '_';
    };
    return !text.empty( ) && std::all_of( text.begin( ), text.end( ), isFine );
}

bool isLoopback( const GString& ip )
{
    return GNetIsLoopbackHost( GUTF8ToWide( ip ) );
}

// The address in full, as the library composes it of the description's base and path.
GString controlURL( IGDdatas& data, const IGDdatas_service& service, const GString& descriptionURL )
{
    UPNPUrls urls{ };
    data.first = service;
    GetUPNPUrls( &urls, &data, descriptionURL.c_str( ), 0 );
    GString url = urls.controlURL ? urls.controlURL : "";
    FreeUPNPUrls( &urls );
    return url;
}
} // namespace

std::string_view GUPnPElement( std::string_view xml, std::string_view name )
{
    for( size_t at = xml.find( name ); at != std::string_view::npos; at = xml.find( name, at + 1 ) )
    {
        const size_t from = at + name.size( );
        if( at == 0 || xml[at - 1] != '<' || from >= xml.size( ) || ( xml[from] != '>' && xml[from] != ' ' ) ) continue;
        const size_t open = xml.find( '>', from );
        if( open == std::string_view::npos ) return { };
        const std::string_view text = xml.substr( open + 1 );
        return text.substr( 0, text.find( '<' ) );
    }
    return { };
}

bool GUPnPGateway::find( const GString& localIP )
{
    GNetUDPPort* port = GNetUDPPortOpen( GUTF8ToWide( localIP ) + u":0" );
    if( !port ) return false;
    // A machine that is off line can't ask; that is no fault of the port.
    GNetUDPPortSetForgiving( port, true );
    const bool local = isLoopback( localIP );
    const uint64_t begin = GTimeGetTime( );
    uint64_t asked = 0;
    bool found = false;
    std::vector<GString> urls;
    GString datagram;
    GWString sender;
    while( !_isPublic && GTimeGetTime( ) - begin < SEARCH_TIME && !GIsShuttingDown( ) )
    {
        if( !asked || GTimeGetTime( ) - asked >= SEARCH_PERIOD )
        {
            asked = GTimeGetTime( );
            ask( port );
        }
        GNetWait( { port }, { }, { }, SEARCH_WAIT );
        const auto isInTime = [&] { return !_isPublic && GTimeGetTime( ) - begin < DESCRIBE_TIME; };
        for( int i = 0; i < MAX_DATAGRAMS && isInTime( ) && GNetUDPPortRecv( port, datagram, sender ); ++i )
        {
            const GString url = locationOf( datagram );
            if( url.empty( ) || urls.size( ) == MAX_URLS ||
                std::find( urls.begin( ), urls.end( ), url ) != urls.end( ) )
                continue;
            urls.push_back( url );
            if( _describe( url, local ) ) found = true;
        }
    }
    GNetUDPPortClose( port );
    return found;
}

bool GUPnPGateway::_describe( const GString& url, bool local )
{
    GUPnPAddress address;
    // Only who is on loopback himself is sent there.
    if( !GUPnPSplitURL( url, address ) || ( GNetIsLoopbackHost( address.host ) && !local ) ) return false;
    GUPnPAnswer answer;
    const GString request = "GET " + address.path + " HTTP/1.1\r\nHost: " + GWideToUTF8( address.host ) +
                            "\r\nConnection: close\r\nUser-Agent: Velmora\r\n\r\n";
    if( !GUPnPExchange( address.host, request, answer ) || answer.status != SUCCESS ) return false;
    IGDdatas data{ };
    parserootdesc( answer.body.data( ), static_cast<int>( answer.body.size( ) ), &data );
    if( !std::string_view( data.CIF.servicetype ).starts_with( COMMON_SERVICE ) ) return false;
    bool found = false;
    const IGDdatas_service services[] = { data.first, data.second };
    for( const IGDdatas_service& service : services )
        if( !_isPublic && service.controlurl[0] &&
            _take( controlURL( data, service, url ), service.servicetype, local ) )
            found = true;
    return found;
}

// A gateway that answers is kept unless there is one already; a public one always.
bool GUPnPGateway::_take( const GString& url, const GString& service, bool local )
{
    GUPnPGateway other;
    if( !GUPnPSplitURL( url, other._control ) || ( GNetIsLoopbackHost( other._control.host ) && !local ) ) return false;
    if( !isService( service ) ) return false;
    other._service = service;
    GString answer;
    if( other._command( "GetStatusInfo", "", answer ) == NO_ANSWER ) return false;
    const std::string_view status = GUPnPElement( answer, "NewConnectionStatus" );
    const bool isConnected = status == "Connected" || status == "Up";
    if( other._command( "GetExternalIPAddress", "", answer ) == 0 )
        other._externalIP = GUPnPElement( answer, "NewExternalIPAddress" );
    other._isPublic = isConnected && GNetIsPublicHost( GUTF8ToWide( other._externalIP ) + u":1" );
    if( _service.empty( ) || other._isPublic ) *this = other;
    return true;
}

int GUPnPGateway::addMapping( int externalPort, const GString& localIP, int localPort, const GString& description )
{
    GString answer;
    return _command( "AddPortMapping",
                     "<NewRemoteHost></NewRemoteHost><NewExternalPort>" + std::to_string( externalPort ) +
                         "</NewExternalPort><NewProtocol>UDP</NewProtocol><NewInternalPort>" +
                         std::to_string( localPort ) + "</NewInternalPort><NewInternalClient>" + localIP +
                         "</NewInternalClient><NewEnabled>1</NewEnabled><NewPortMappingDescription>" + description +
                         "</NewPortMappingDescription><NewLeaseDuration>0</NewLeaseDuration>",
                     answer );
}

int GUPnPGateway::removeMapping( int externalPort )
{
    GString answer;
    return _command( "DeletePortMapping",
                     "<NewRemoteHost></NewRemoteHost><NewExternalPort>" + std::to_string( externalPort ) +
                         "</NewExternalPort><NewProtocol>UDP</NewProtocol>",
                     answer );
}

int GUPnPGateway::_command( const GString& action, const GString& arguments, GString& answer ) const
{
    const GString body = "<?xml version=\"1.0\"?>\r\n<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
                         "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body><u:" +
                         action + " xmlns:u=\"" + _service + "\">" + arguments + "</u:" + action +
                         "></s:Body></s:Envelope>\r\n";
    const GString request = "POST " + _control.path + " HTTP/1.1\r\nHost: " + GWideToUTF8( _control.host ) +
                            "\r\nUser-Agent: Velmora\r\nContent-Length: " + std::to_string( body.size( ) ) +
                            "\r\nContent-Type: text/xml; charset=\"utf-8\"\r\nSOAPAction: \"" + _service + "#" +
                            action + "\"\r\nConnection: close\r\n\r\n" + body;
    GUPnPAnswer reply;
    if( !GUPnPExchange( _control.host, request, reply ) ) return NO_ANSWER;
    answer = reply.body;
    if( reply.status == SUCCESS ) return 0;
    const int64_t error = GCalc( GUPnPElement( answer, "errorCode" ) );
    return GWITHIN( 1, error, 65535 ) ? static_cast<int>( error ) : reply.status;
}
