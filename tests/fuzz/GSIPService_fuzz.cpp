// A client's whole signalling under messages of any text, from its server, from a device and from nowhere, in any order and at any
// time. An input is a line of two numbers, who speaks and how long it took, then a message; an empty line ends it. In values "%o"
// is the client's own host and "%f" the device's.
#include "Fuzz.h"
#include "support/TestClock.h"
#include "unit/signalling/TestClient.h"

namespace
{
const char16_t* const FAR = u"127.0.0.1:9";
const char16_t* const STRANGER = u"127.0.0.1:19";
constexpr int64_t TENTH = 100000;

GWString replace( GWString text, GWStringView what, GWStringView by )
{
    for( size_t at = text.find( what ); at != GWString::npos; at = text.find( what, at + by.size( ) ) )
        text.replace( at, what.size( ), by );
    return text;
}

class Talk
{
public:
    Talk( )
    {
        client.instance.set( u"Contact_Requests", 1 );
        client.command( u"BUDDYLOGON" );
        for( int i = 0; i < 3; ++i )
        {
            server.answer( );
            client.pass( );
        }
    }
    void speak( Fuzz::Input& input )
    {
        const uint8_t who = input.byte( );
        const uint8_t pause = input.byte( );
        input.line( );
        GHTTPHeaders message = read( input );
        if( who & 4 ) address( message );
        GMegaPortBucket* bucket = client.port.getEmtpyBucket( );
        bucket->localHost = client.host( );
        bucket->remoteHost = who & 1 ? server.host( ) : who & 2 ? STRANGER : FAR;
        bucket->buffer = message.serialize( );
        client.port.fillSIPBucket( bucket );
        client.pass( );
        clock.advance( ( pause & 63 ) * TENTH );
        client.pass( );
        if( who & 8 ) server.answer( );
    }

private:
    GHTTPHeaders read( Fuzz::Input& input )
    {
        GHTTPHeaders message = input.message( );
        const auto headers = message.headers( );
        for( const auto& [name, value] : headers )
            message.set( name, replace( replace( GWString( value ), u"%o", client.host( ) ), u"%f", FAR ) );
        return message;
    }
    // What every honest message of that device carries.
    void address( GHTTPHeaders& message )
    {
        message.set( u"From", u"bob@test" );
        message.set( u"From-Device-GUID", u"D2" );
        if( !message.contains( u"CSeq" ) ) message.set( u"CSeq", ++_cseq );
        message.set( u"Sent-From", FAR );
        message.set( u"Sent-From-Type", u"local" );
        message.set( u"Sent-To", client.host( ) );
    }

    TestClock clock;
    TestServer server;
    TestClient client{ u"ann@test", u"D1", server.host( ) };
    int64_t _cseq = 100;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    Talk talk;
    for( int messages = 0; messages < 20 && !input.empty( ); ++messages ) talk.speak( input );
    return 0;
}
