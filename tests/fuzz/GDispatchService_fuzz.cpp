// A client's way to its servers under any sequence of answers, datagrams, relay bytes, commands and waits. An input is a row of steps, each
// a letter and what it needs; unknown letters are passed over, so most bytes mean something:
//   c d r           CONNECT, DISCONNECT, RESET        k LINE      those bytes on the command queue
//   t N             time, of TIMES                    p           nothing but a pass
//   a N, f N        the N-th newest request is answered as asked for, or refused; N + 32: by a stranger
//   m N MESSAGE     the same with these headers       l N         the same as a, through the relay
//   b N LINE        a datagram of these bytes from the N-th of HOSTS;      h N MESSAGE   of this message;     v N LINE   as media
//   s LINE          bytes of the relay                g MESSAGE   a message of the relay with what follows as content LINE
//   e               the relay hangs up                w N         how much the relay takes at once
//   o N             turns the N-th of OPTIONS over    x           the port fails
// Whatever comes, the service sends to nobody but the hosts that it was told, and what it knows of itself stays in form.
#include "Fuzz.h"
#include "FuzzNet.h"
#include "client/signalling/GDispatchService.h"
#include "client/transport/GMegaPort.h"
#include "client/transport/GRTP.h"
#include "runtime/GInstance.h"
#include "support/TestClock.h"

#include <iterator>

namespace
{
constexpr const char16_t* HOSTS[] = { u"127.0.1.1:1", u"127.0.1.2:2", u"127.0.1.3:3", u"127.0.1.4:4",
                                      u"127.0.1.5:5", u"127.0.1.6:6", u"127.0.1.7:7", u"127.0.9.9:9" };
constexpr const char16_t* DIRECT = HOSTS[0];
constexpr const char16_t* RELAY = HOSTS[6];
constexpr const char16_t* STRANGER = HOSTS[7];
constexpr const char16_t* OPTIONS[] = { u"Robust_Signalling", u"Pretend_Firewall", u"Disable_UDP_Recv",
                                        u"Disable_Connection_Timeout" };
constexpr const char16_t* GLOBAL_HOST = u"5.5.5.5:7000";
constexpr int64_t TIMES[] = { 1000, 500000, 1100000, 1600000, 5600000, 31000000, 61000000, 901000000 };
constexpr char SETTINGS[] = "fuzz_dispatch_settings.ini";
constexpr size_t MAX_KEPT = 64;
constexpr int MAX_STEPS = 60;
constexpr int BY_STRANGER = 32;

class Life
{
public:
    Life( )
    {
        service.lock( );
        instance.set( u"Local_IP", u"127.0.0.1" );
        instance.set( u"Local_User_GUID", u"me@velmora.local" );
        instance.set( u"Current_Version", 764 );
        instance.set( u"Global_STUN_Host_List", GStringList( HOSTS, HOSTS + 4 ) );
        instance.set( u"Global_SIP_Host_List", GStringList( HOSTS + 4, HOSTS + 6 ) );
        instance.set( u"Global_TURN_Host", RELAY );
        GUPnPFunctions none;
        none.open = []( const GWString&, int, int ) -> GNetUPnPMapping* { return nullptr; };
        service.setUPnPFunctions( none );
        FuzzNet::world( ) = { };
        FuzzNet::world( ).onSent = [this]( GWStringView host, std::string_view bytes ) { hear( host, bytes ); };
        FuzzNet::world( ).onStreamed = [this]( std::string_view bytes ) { hearStream( bytes ); };
    }
    ~Life( )
    {
        service._bGThreadObject_safe_onShutdown( );
        service.unlock( );
        Fuzz::require( !FuzzNet::world( ).port && !FuzzNet::world( ).socket );
        GFileDelete( GUTF8ToWide( SETTINGS ) );
    }

    void step( Fuzz::Input& input )
    {
        switch( input.byte( ) )
        {
        case 'c': command( "CONNECT / HTTP/1.1\r\n\r\n" ); break;
        case 'd': command( "DISCONNECT / HTTP/1.1\r\n\r\n" ); break;
        case 'r': command( "RESET / HTTP/1.1\r\n\r\n" ); break;
        case 'k': command( input.line( ) ); break;
        case 't': clock.advance( TIMES[input.byte( ) % std::size( TIMES )] ); break;
        case 'p': break;
        case 'a': answer( input.byte( ), 200, { } ); break;
        case 'f': refuse( input ); break;
        case 'm': reply( input ); break;
        case 'l': relayAnswer( input.byte( ) ); break;
        case 'b': bring( input.byte( ), input.line( ) ); break;
        case 'h': greet( input ); break;
        case 'v': sing( input ); break;
        case 's': FuzzNet::world( ).stream += input.line( ); break;
        case 'g': preach( input ); break;
        case 'e': FuzzNet::world( ).streamEnds = true; break;
        case 'w': FuzzNet::world( ).window = robust ? input.byte( ) : 0; break;
        case 'o': turn( OPTIONS[input.byte( ) % std::size( OPTIONS )] ); break;
        case 'x':
            if( FuzzNet::world( ).port ) FuzzNet::world( ).port->alive = false;
            break;
        default: return;
        }
        pass( );
    }

private:
    struct Sent
    {
        GWString host;
        GHTTPHeaders message;
    };

    void pass( )
    {
        const bool wasOffline = service.getState( ) == GDispatchService::OFFLINE;
        service.pass( 0 );
        if( wasOffline )
        {
            robust = instance.isRobust( u"Robust_Signalling" );
            if( !robust ) FuzzNet::world( ).window = 0;
        }
        drain( );
        verify( );
    }
    void drain( )
    {
        while( GMegaPortBucket* bucket = port.getSIPBucket( ) ) take( bucket );
        for( const int type : { GRTP_AUDIO, GRTP_VIDEO, GRTP_FILE, GRTP_SCREEN } )
            while( GMegaPortBucket* bucket = port.getRTPBucket( type ) ) take( bucket );
        GString item;
        while( instance.dequeue( u"GClient_commandQueue", item ) )
            Fuzz::require( item.starts_with( "CONNECTED " ) || item.starts_with( "DISCONNECTED " ) );
    }
    void take( GMegaPortBucket* bucket )
    {
        Fuzz::require( GNetIsUnicastHost( bucket->remoteHost ) && !bucket->localHost.empty( ) );
        port.returnEmptyBucket( bucket );
    }
    // What holds after every pass.
    void verify( )
    {
        const int state = service.getState( );
        Fuzz::require( GWITHIN( 0, state, 8 ) );
        const bool offline = state == GDispatchService::OFFLINE;
        Fuzz::require( offline == !FuzzNet::world( ).port );
        if( offline ) Fuzz::require( !FuzzNet::world( ).socket && !instance.isSet( u"Global_Host" ) );
        if( offline ) Fuzz::require( port.getLocalHost( ) == u"0.0.0.0:0" );
        if( state == GDispatchService::ONLINE ) Fuzz::require( port.getLocalHost( ) == FuzzNet::LOCAL_HOST );
        if( instance.isSet( u"Global_Host" ) ) Fuzz::require( GNetIsUnicastHost( instance.get( u"Global_Host" ) ) );
        if( instance.isSet( u"Local_Device_GUID" ) )
            Fuzz::require( GValidDeviceID( instance.get( u"Local_Device_GUID" ) ) );
        if( instance.isSet( u"Global_SIP_Host" ) )
            Fuzz::require( instance.contains( u"Global_SIP_Host_List", instance.get( u"Global_SIP_Host" ) ) );
    }

    // ---- What the service sends.
    void hear( GWStringView host, std::string_view bytes )
    {
        Fuzz::require( std::find( std::begin( HOSTS ), std::end( HOSTS ) - 1, host ) != std::end( HOSTS ) - 1 );
        Sent sent;
        sent.host = host;
        if( bytes == "HOLEPUNCH" ) return;
        Fuzz::require( sent.message.deserialize( bytes.data( ), static_cast<int>( bytes.size( ) ) ) ==
                       static_cast<int>( bytes.size( ) ) );
        Fuzz::require( sent.message.get( u"CSeq" ).ends_with( u" (GDispatchService)" ) );
        outbox.push_back( sent );
        if( outbox.size( ) > MAX_KEPT ) outbox.pop_front( );
    }
    // Whole messages alone, however little the relay takes at once.
    void hearStream( std::string_view bytes )
    {
        if( heard != FuzzNet::world( ).connections ) unread.clear( );
        heard = FuzzNet::world( ).connections;
        unread += bytes;
        GHTTPHeaders message;
        while( const int used = unread.empty( ) ? 0 : message.deserialize( unread ) )
        {
            GConsume( unread, used );
            if( message.isMethod( u"SENDUDP" ) )
                hear( message.get( u"Remote-Host" ), message.getContent( 0 ) );
            else
                hear( RELAY, message.serialize( ) );
        }
        if( !unread.empty( ) )
            Fuzz::require( GHTTPHeaders::measure( unread.data( ), static_cast<int>( unread.size( ) ) ) >= 0 );
    }

    // ---- What the service hears.
    const Sent* request( int back ) const
    {
        const size_t n = static_cast<size_t>( back ) % BY_STRANGER;
        return n < outbox.size( ) ? &outbox[outbox.size( ) - 1 - n] : nullptr;
    }
    GHTTPHeaders compose( const Sent& to, int code, const GHTTPHeaders& extra ) const
    {
        GHTTPHeaders response;
        response.setResponse( code, u"text" );
        for( const GWStringView name : { u"Global-Host", u"Observed-Host", u"Reported-Host" } )
            response.set( name, GLOBAL_HOST );
        response.set( u"Device-GUID", u"device-1" );
        for( const auto& [name, value] : extra.headers( ) ) response.set( name, value );
        response.set( u"CSeq", to.message.get( u"CSeq" ) );
        return response;
    }
    // The hosts that a test of the network names answer, too.
    void answer( int back, int code, const GHTTPHeaders& extra )
    {
        const Sent* to = request( back );
        if( !to ) return;
        const GString bytes = compose( *to, code, extra ).serialize( );
        if( back & BY_STRANGER )
            FuzzNet::world( ).inbox.push_back( { STRANGER, bytes } );
        else if( to->message.isMethod( u"OPENTURN" ) )
            FuzzNet::world( ).stream += bytes;
        else
            FuzzNet::world( ).inbox.push_back( { to->host, bytes } );
        if( to->host != DIRECT || !( back & 8 ) ) return;
        for( const char16_t* host : { HOSTS[1], HOSTS[2] } ) FuzzNet::world( ).inbox.push_back( { host, bytes } );
    }
    void refuse( Fuzz::Input& input )
    {
        const int back = input.byte( );
        answer( back, back & 1 ? 404 : 500, { } );
    }
    void reply( Fuzz::Input& input )
    {
        const int back = input.byte( );
        input.line( );
        const GHTTPHeaders extra = input.message( );
        answer( back, 200, extra );
    }
    void relayAnswer( int back )
    {
        if( const Sent* to = request( back ) ) relay( to->host, compose( *to, 200, { } ).serialize( ) );
    }
    void relay( const GWString& from, const GString& bytes )
    {
        GHTTPHeaders message;
        message.setResponse( 200, u"OK" );
        message.set( u"Remote-Host", from );
        message.addContent( bytes );
        FuzzNet::world( ).stream += message.serialize( );
    }
    void bring( int from, const GString& bytes )
    {
        // The system gives no datagram without a byte.
        if( !bytes.empty( ) ) FuzzNet::world( ).inbox.push_back( { hostOf( from ), bytes } );
    }
    void greet( Fuzz::Input& input )
    {
        const int from = input.byte( );
        input.line( );
        const GString bytes = input.message( ).serialize( );
        from& BY_STRANGER ? relay( hostOf( from ), bytes ) : bring( from, bytes );
    }
    void sing( Fuzz::Input& input )
    {
        const int from = input.byte( );
        const GString bytes = "\x80" + input.line( );
        from& BY_STRANGER ? relay( hostOf( from ), bytes ) : bring( from, bytes );
    }
    void preach( Fuzz::Input& input )
    {
        input.line( );
        GHTTPHeaders message = input.message( );
        message.addContent( input.line( ) );
        FuzzNet::world( ).stream += message.serialize( );
    }
    static GWString hostOf( int n ) { return HOSTS[static_cast<size_t>( n ) % std::size( HOSTS )]; }
    void command( const GString& bytes ) { instance.enqueue( u"GDispatchService_commandQueue", bytes ); }
    void turn( GWStringView option ) { instance.set( option, instance.test( option ) ? 0 : 1 ); }

    TestClock clock;
    GInstance instance{ GUTF8ToWide( SETTINGS ) };
    GMegaPort port{ u"me@velmora.local" };
    GDispatchService service{ &instance, &port };
    std::deque<Sent> outbox;
    GString unread;
    int heard = 0; // The connection of which that is.
    bool robust = false;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    Life life;
    for( int steps = 0; steps < MAX_STEPS && !input.empty( ); ++steps ) life.step( input );
    return 0;
}
