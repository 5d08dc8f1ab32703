// Datagrams of two users with a second device and of a stranger while time goes on, as bytes and as messages that know identities and
// requests for a contact: nothing leaves for a host that never wrote, what is no message is answered by nothing, a stranger gets
// no more than he could have had for himself, and registrations have a limit.
#include "ServerFuzz.h"
#include "server/core/GServerMessage.h"
#include "server/signalling/GSignallingService.h"

#include <set>

namespace
{
constexpr const char* SOURCES[] = { Fuzz::ANN_HOST, Fuzz::BEN_HOST, "198.51.100.2:4001", "203.0.113.9:9" };
constexpr size_t STRANGER = 3;
constexpr const char16_t* METHODS[] = { u"PING",         u"DEVICEGUID", u"REGISTER",  u"UNREGISTER",    u"GETBUDDYLIST",
                                        u"SETBUDDYLIST", u"ADDBUDDY",   u"BUGREPORT", u"CONTACTANSWER", u"INVITE" };
constexpr const char16_t* USERS[] = { u"ann@velmora.local", u"ben@velmora.local", u"nobody@velmora.local" };
constexpr const char16_t* DEVICES[] = { u"dev1", u"dev2", u"dev3" };

// A request that a client could have written; single headers of it are replaced by what the input says.
GHTTPHeaders requestOf( Fuzz::Input& input )
{
    const uint8_t what = input.byte( );
    const uint8_t names = input.byte( );
    GHTTPHeaders message( METHODS[what % std::size( METHODS )] );
    message.set( u"CSeq", GConcat( input.byte( ) % 8, u" (fuzz)" ) );
    message.set( u"From", USERS[names % 3] );
    message.set( u"To", USERS[names / 3 % 3] );
    message.set( u"Buddy-GUID", USERS[names / 3 % 3] );
    message.set( u"Buddy-List", USERS[names / 3 % 3] );
    message.set( u"Device-GUID", DEVICES[names / 9 % 3] );
    message.set( u"From-Device-GUID", DEVICES[names / 9 % 3] );
    message.set( u"Version", u"764" );
    message.set( u"Route-List", u"local://198.51.100.7:4000" );
    message.set( u"Try-Route-List", u"local://198.51.100.7:4000" );
    message.set( u"Global-Host", u"198.51.100.7:4000" );
    message.set( u"Text", u"text" );
    message.set( u"Answer", names & 128 ? u"block" : u"refuse" );
    if( names & 64 ) message.set( u"Capabilities", u"contacts" );
    if( what & 128 ) message.set( u"CSeq", input.wideLine( ) );
    if( what & 64 ) message.set( u"Buddy-List", input.wideLine( ) );
    if( what & 32 ) message.set( u"Route-List", input.wideLine( ) );
    return message;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    Fuzz::Server server;
    server.store.addDevice( "dev3", Fuzz::START );
    server.config.devicesPerUser = 2;
    GSignallingService service( server.config, server.store, server.metrics );
    service.setListeners( { "127.0.0.1:1", "127.0.0.1:2" } );
    uint64_t now = Fuzz::START;
    std::set<GString> heard;
    const auto check = [&heard]( const GDatagramList& out )
    {
        for( const GDatagramList::Item& datagram : out )
            Fuzz::require( heard.contains( datagram.to ) && datagram.socket < 2 && !datagram.bytes.empty( ) );
    };
    for( int messages = 0; messages < 32 && !input.empty( ); ++messages )
    {
        const uint8_t who = input.byte( );
        const size_t source = who % 4;
        const GString from = SOURCES[source];
        heard.insert( from );
        const uint8_t form = input.byte( ) % 4;
        const GString bytes = form == 0   ? input.line( )
                              : form == 1 ? input.message( ).serialize( )
                                          : requestOf( input ).serialize( );
        GDatagramList out;
        service.onDatagram( who >> 7, from, bytes, now, out );
        check( out );
        GHTTPHeaders request;
        const bool good = GServerMessage::read( bytes, request );
        Fuzz::require( good || out.empty( ) );
        // Without a logon nobody but himself hears of a stranger.
        if( source == STRANGER )
            for( const GDatagramList::Item& datagram : out ) Fuzz::require( datagram.to == from );
        now += input.byte( ) * 1000000u;
        out.clear( );
        service.update( now, out );
        check( out );
        if( who & 4 ) service.expire( now );
        Fuzz::require( service.registrationCount( ) <= 4 );
    }
    return 0;
}
