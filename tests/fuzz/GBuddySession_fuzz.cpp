// A client's sessions under long exchanges: an input is a row of moves, such as a message of a device, a command of the skin or time
// that passes. A message is what an honest party would send, but for one header at choice. Whatever comes, sessions and records stay
// within their limits and nothing is written under anybody else's name.
#include "Fuzz.h"
#include "support/TestClock.h"
#include "unit/signalling/TestClient.h"

#include <cstdio>
#include <set>

namespace
{
constexpr int64_t TENTH = 100000;
constexpr int MOST_MOVES = 200;
constexpr size_t MOST_HEARD = 16;

const char16_t* const USERS[] = { u"bob@test", u"cid@test", u"bob@test_removed", u"ann@test",
                                  u"Bob@Test", u"bob",      u"../x@y",           u"" };
const char16_t* const DEVICES[] = { u"D2", u"D3", u"D4", u"D1", u"d2", u"a_b", u"../x", u"" };
const char16_t* const METHODS[] = { u"INVITE",    u"ACK",    u"BYE",   u"PING",           u"UPDATE", u"DEVICEBROADCAST",
                                    u"HOLEPUNCH", u"CANCEL", u"OTHER", u"CONTACTREQUEST", u"",       u"GETBUDDYLIST" };
const int CODES[] = { 200, 100, 300, 400, 500, 0, -1, 999999 };
const char16_t* const COMMANDS[] = { u"BUDDYLOGON",    u"BUDDYLOGOFF",    u"UPDATECAPTURE", u"ADDBUDDY",
                                     u"REMOVEBUDDY",   u"RECONNECTBUDDY", u"BUGREPORT",     u"RESET",
                                     u"CONTACTANSWER", u"OTHER" };
const char16_t* const INNERS[] = { u"CHAT", u"SENDFILE", u"SHARESCREEN", u"" };
const char16_t* const HEADERS[] = {
    u"CSeq",           u"CSeq-Group", u"From",           u"From-Device-GUID", u"To",
    u"To-Device-GUID", u"Sent-From",  u"Sent-From-Type", u"Sent-To",          u"Sent-To-Type",
    u"Send-From",      u"Send-To",    u"Send-To-Type",   u"Try-Route-List",   u"Device-List",
    u"D2-Route-List",  u"Buddy-List", u"Time-Bias",      u"Time-Zone",        u"Audio-Enabled",
    u"Video-Enabled",  u"Removed",    u"Time-Sent",      u"Content-Length",   u"State" };
const char16_t* const VALUES[] = {
    u"",
    u"0",
    u"-1",
    u"99999999999999999999",
    u"0.0.0.0:0",
    u"224.0.0.1:9",
    u"local://255.255.255.255:9",
    u"local://127.0.0.1:9, local://127.0.0.1:9, turn://127.0.0.1:10, x://y, ://, a://b://c",
    u"1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20",
    u"D2, D3, ../x, D1, a_b",
    u"\x01\x7f\xfffe",
    u"true",
    u"bob@test",
    u"D3",
    u"pending" };

// Names that a session may write, behind a user's or a device's own.
const std::set<GWString> BUDDY_SUFFIXES = { u"_image",           u"_image_bw",        u"_time",
                                            u"_online",          u"_offline",         u"_chat_status",
                                            u"_device_list",     u"_audio_enabled",   u"_time_zone",
                                            u"_time_bias",       u"@_removed_time",   u"_image_format",
                                            u"_image_dirtyrect", u"_image_bw_format", u"_image_bw_dirtyrect",
                                            u"_contact_status" };
const std::set<GWString> DEVICE_SUFFIXES = { u"_status",    u"_buddy",   u"_audio_enabled", u"_video_enabled",
                                             u"_ping",      u"_loss",    u"_send_route",    u"_recv_route",
                                             u"_send_from", u"_send_to", u"_recv_from" };
const std::set<GWString> OWN_NAMES = { u"sip_status",
                                       u"local_buddy_list",
                                       u"combined_buddy_device_list",
                                       u"add_buddy_status",
                                       u"bug_report_status",
                                       u"contact_request_list",
                                       u"contact_request_title",
                                       u"robust_signalling",
                                       u"disable_connection_timeout",
                                       u"robust_client",
                                       u"contact_requests" };

std::set<GWString>* names_ = nullptr;
void collectName( const GWString& line )
{
    constexpr GWStringView MARK = u"SETTINGS: ";
    const size_t at = line.find( MARK );
    if( !names_ || at == GWString::npos ) return;
    const size_t begin = at + MARK.size( );
    names_->insert( line.substr( begin, line.find( u": ", begin ) - begin ) );
}

bool isSessionsName( const GWString& name )
{
    if( OWN_NAMES.contains( name ) ) return true;
    constexpr GWStringView ROUTES = u"_route_list";
    if( name.ends_with( ROUTES ) && GValidDeviceID( GWStringView( name ).substr( 0, name.size( ) - ROUTES.size( ) ) ) )
        return true;
    for( const GWString& suffix : BUDDY_SUFFIXES )
        if( name.ends_with( suffix ) &&
            GValidUserID( GWStringView( name ).substr( 0, name.size( ) - suffix.size( ) ) ) )
            return true;
    const size_t device = name.rfind( u'@' );
    if( device == GWString::npos || !GValidUserID( GWStringView( name ).substr( 0, device ) ) ) return false;
    const size_t suffix = name.find( u'_', device );
    return suffix != GWString::npos && DEVICE_SUFFIXES.contains( name.substr( suffix ) ) &&
           GValidDeviceID( GWStringView( name ).substr( device + 1, suffix - device - 1 ) );
}

class Exchange
{
public:
    explicit Exchange( Fuzz::Input& input ) : _input( input ) { _before = names( ); }
    void move( )
    {
        switch( _input.byte( ) % 12 )
        {
        case 0: clock.advance( _input.number( 250 ) * TENTH ); break;
        case 1: client.pass( ); break;
        case 2: server.answer( ); break;
        case 3: command( ); break;
        case 4: skinMessage( ); break;
        case 5:
        case 6:
        case 7: send( request( ) ); break;
        case 8:
        case 9: send( response( ) ); break;
        case 10: setting( ); break;
        case 11: port( ); break;
        }
        hear( );
    }
    void check( )
    {
        client.pass( );
        Fuzz::require( client.service->getBuddyCount( ) <= 1024 );
        for( const char16_t* user : USERS )
            if( const GBuddySession* session = client.service->findBuddy( user ) )
            {
                Fuzz::require( GValidUserID( user ) );
                Fuzz::require( session->getDeviceCount( ) <= 16 );
            }
        Fuzz::require( client.service->getClient( ).getRequestCount( ) <= 4096 );
        Fuzz::require( client.service->getClient( ).getResponseCount( ) <= 4096 );
        Fuzz::require( client.instance.length( u"GClient_commandQueue" ) <= 2000 );
        for( const GWString& name : names( ) )
            if( !_before.contains( name ) && !isSessionsName( name ) )
            {
                std::fprintf( stderr, "foreign name: %s\n", GWideToUTF8( name ).c_str( ) );
                std::abort( );
            }
    }

private:
    template <typename T, size_t N>
    const T& pick( const T ( &table )[N] )
    {
        return table[_input.byte( ) % N];
    }
    std::set<GWString> names( )
    {
        std::set<GWString> out;
        names_ = &out;
        GPortableGetHooks( ).log = collectName;
        client.instance.logDump( );
        GPortableGetHooks( ).log = nullptr;
        names_ = nullptr;
        return out;
    }
    const GWString& hostOf( int who ) const
    {
        const GWString* const hosts[] = { &server.host( ), &far.host( ), &other.host( ), &_stranger };
        return *hosts[who & 3];
    }
    // Who speaks for whom: one byte.
    void fill( GHTTPHeaders& message, int who )
    {
        message.set( u"From", USERS[who >> 2 & 7] );
        message.set( u"From-Device-GUID", DEVICES[who >> 5 & 7] );
        message.set( u"To", u"ann@test" );
        message.set( u"Sent-From", hostOf( who ) );
        message.set( u"Sent-From-Type", u"local" );
        message.set( u"Sent-To", client.host( ) );
        message.set( u"Sent-To-Type", u"local" );
        message.set( u"Send-From", client.host( ) );
        message.set( u"Send-To", far.host( ) );
        message.set( u"Send-To-Type", u"local" );
        message.set( u"Try-Route-List",
                     GStringList{ GConcat( u"local://", far.host( ) ), GConcat( u"turn://", other.host( ) ) } );
        message.set( u"Audio-Enabled", u"true" );
        message.set( u"Video-Enabled", u"true" );
        message.set( u"Time-Bias", u"60" );
        message.set( u"Time-Zone", u"CET" );
    }
    void spoil( GHTTPHeaders& message )
    {
        const int flaw = _input.byte( );
        if( flaw < 128 ) return;
        const char16_t* const header = HEADERS[static_cast<size_t>( flaw - 128 ) % std::size( HEADERS )];
        const int value = _input.byte( );
        if( value < 32 )
            message.erase( header );
        else if( value < 128 )
            message.set( header, GWStringView( VALUES[static_cast<size_t>( value ) % std::size( VALUES )] ) );
        else
            message.set( header, _input.wideLine( ) );
    }
    GHTTPHeaders request( )
    {
        GHTTPHeaders message( pick( METHODS ) );
        _who = _input.byte( );
        fill( message, _who );
        message.set( u"CSeq", _input.byte( ) & 1 ? _cseq : ++_cseq );
        if( message.isMethod( u"DEVICEBROADCAST" ) ) message.addContent( GHTTPHeaders( pick( INNERS ) ).serialize( ) );
        spoil( message );
        return message;
    }
    // To one of the last requests that the client has sent.
    GHTTPHeaders response( )
    {
        GHTTPHeaders message;
        message.setResponse( pick( CODES ), u"text" );
        _who = _input.byte( );
        fill( message, _who );
        const size_t which = _input.byte( );
        if( !_heard.empty( ) )
        {
            const GHTTPHeaders& original = _heard[which % _heard.size( )];
            message.set( u"CSeq", original.get( u"CSeq" ) );
            if( original.contains( u"CSeq-Group" ) ) message.set( u"CSeq-Group", original.get( u"CSeq-Group" ) );
        }
        if( which & 128 )
        {
            message.erase( u"From-Device-GUID" );
            message.set( u"Device-List", u"D2, D3" );
            message.set( u"D2-Route-List", GStringList{ GConcat( u"local://", far.host( ) ) } );
            message.set( u"Buddy-List", u"bob@test, cid@test" );
        }
        spoil( message );
        return message;
    }
    void send( const GHTTPHeaders& message )
    {
        GMegaPortBucket* bucket = client.port.getEmtpyBucket( );
        bucket->localHost = client.host( );
        bucket->remoteHost = hostOf( _who );
        bucket->buffer = message.serialize( );
        client.port.fillSIPBucket( bucket );
    }
    void command( )
    {
        GHTTPHeaders message( pick( COMMANDS ) );
        message.set( u"Buddy-GUID", pick( USERS ) );
        message.set( u"Answer", u"refuse" );
        client.instance.enqueue( u"GSIPService_commandQueue", message );
    }
    void skinMessage( )
    {
        GHTTPHeaders inner( pick( INNERS ) );
        inner.set( u"Path", u"/tmp/x" );
        GHTTPHeaders message( _input.byte( ) & 1 ? u"OTHER" : u"DEVICEBROADCAST" );
        message.addContent( inner.serialize( ) );
        client.instance.enqueue( GConcat( USERS[_input.byte( ) & 1], u"_commandQueue" ), message );
    }
    void setting( )
    {
        const char16_t* const settings[] = { u"Robust_Signalling", u"Disable_Connection_Timeout",
                                             u"Video_Capture_Online", u"Contact_Requests", u"Robust_Client" };
        const char16_t* const name = pick( settings );
        client.instance.set( name, client.instance.test( name ) ? u"0" : u"1" );
    }
    // The dispatch service loses its connection, and finds it again.
    void port( )
    {
        client.port.reset( );
        if( _input.byte( ) & 1 ) client.pass( );
        client.connect( );
    }
    void hear( )
    {
        for( const TestHost* host : { &far, &other } )
            for( const Heard& heard : host->hear( ) ) remember( heard.message );
        for( const GHTTPHeaders& message : server.heard ) remember( message );
        server.heard.clear( );
    }
    void remember( const GHTTPHeaders& message )
    {
        if( message.getResponse( ) ) return;
        _heard.push_front( message );
        if( _heard.size( ) > MOST_HEARD ) _heard.pop_back( );
    }

    Fuzz::Input& _input;
    TestClock clock;
    TestServer server;
    TestHost far;
    TestHost other;
    const GWString _stranger = u"198.51.100.7:4000";
    TestClient client{ u"ann@test", u"D1", server.host( ) };
    std::set<GWString> _before;
    std::deque<GHTTPHeaders> _heard; // Newest first.
    int64_t _cseq = 100;
    int _who = 0;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    Exchange exchange( input );
    for( int moves = 0; moves < MOST_MOVES && !input.empty( ); ++moves ) exchange.move( );
    exchange.check( );
    return 0;
}
