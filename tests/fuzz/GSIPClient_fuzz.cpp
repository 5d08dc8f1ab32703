// The transaction layer under any row of sends, datagrams, resets and time, with a listener that answers and resets in the middle of a
// call as sessions do. Its records stay within their limits, and nothing comes back more often than was asked.
#include "Fuzz.h"
#include "client/signalling/GSIPClient.h"
#include "support/TestClock.h"
#include "unit/signalling/TestPeer.h"

namespace
{
constexpr int64_t TENTH = 100000;
constexpr int MOST_MOVES = 200;

class Layer : public IGSIPClientListener
{
public:
    explicit Layer( Fuzz::Input& input ) : _input( input ) {}
    void move( )
    {
        switch( _input.byte( ) % 10 )
        {
        case 0: clock.advance( _input.number( 700 ) * TENTH ); break;
        case 1: client.dispatch( this ); break;
        case 2: client.sendRequest( host( ), host( ), message( ), _input.byte( ) & 1 ); break;
        case 3: client.sendRequestToRouteList( routes( ), message( ), _input.byte( ) & 1 ); break;
        case 4: client.sendResponse( host( ), host( ), message( ), response( ) ); break;
        case 5: client.sendResponseToRouteList( routes( ), message( ), response( ) ); break;
        case 6:
        case 7: receive( ); break;
        case 8: client.setRobust( _input.byte( ) & 1 ); break;
        case 9: forget( ); break;
        }
        client.dispatch( this );
        far.hear( );
        Fuzz::require( client.getRequestCount( ) <= 4096 && client.getResponseCount( ) <= 4096 );
    }
    void onRequest( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request ) override
    {
        if( request.get( u"Sent-To" ) == u"answer" )
            client.sendResponse( localHost, remoteHost, request, respond( 200, u"OK" ) );
        if( request.get( u"Sent-To" ) == u"reset" ) client.reset( );
    }
    void onResponse( const GWString&, const GWString&, const GHTTPHeaders& request,
                     const GHTTPHeaders& response ) override
    {
        Fuzz::require( request.get( u"CSeq" ) == response.get( u"CSeq" ) );
        Fuzz::require( !request.getResponse( ) && response.getResponse( ) );
        if( response.get( u"Sent-To" ) == u"reset" ) client.reset( );
        if( response.get( u"Sent-To" ) == u"own" )
            client.reset( request.get( u"To" ), request.get( u"To-Device-GUID" ) );
    }

private:
    GWString host( )
    {
        const GWString hosts[] = { peer.host( ), far.host( ), u"", u"0.0.0.0:0", u"rubbish", u"127.0.0.1:0" };
        return hosts[_input.byte( ) % std::size( hosts )];
    }
    GStringList routes( )
    {
        GStringList out;
        for( int count = _input.byte( ) % 6; count; --count )
        {
            const int kind = _input.byte( ) % 5;
            if( kind == 4 )
                out.push_back( _input.wideLine( ) );
            else
                out.push_back( GConcat( kind == 0   ? u"local://"
                                        : kind == 1 ? u"turn://"
                                        : kind == 2 ? u"symmetric://"
                                                    : u"://",
                                        far.host( ) ) );
        }
        return out;
    }
    GHTTPHeaders message( )
    {
        GHTTPHeaders out( u"BYE" );
        out.set( u"To", u"bob@test" );
        out.set( u"To-Device-GUID", _input.byte( ) & 1 ? u"D2" : u"D3" );
        out.set( u"From", u"bob@test" );
        out.set( u"CSeq", static_cast<int64_t>( _input.byte( ) % 8 ) );
        return out;
    }
    GHTTPHeaders response( ) { return respond( _input.byte( ) & 1 ? 200 : 300, u"text" ); }
    void receive( )
    {
        GMegaPortBucket* bucket = peer.port.getEmtpyBucket( );
        bucket->localHost = peer.host( );
        bucket->remoteHost = far.host( );
        GHTTPHeaders text = _input.message( );
        bucket->buffer = _input.byte( ) == 7 ? _input.line( ) : text.serialize( );
        peer.port.fillSIPBucket( bucket );
    }
    void forget( )
    {
        const int what = _input.byte( ) % 4;
        if( what == 0 ) client.reset( );
        if( what == 1 ) client.reset( u"bob@test", u"D2" );
        if( what == 2 ) client.settle( u"bob@test", u"D3" );
        if( what == 3 ) Fuzz::require( client.getOwnHosts( ).size( ) == 1 );
    }

    Fuzz::Input& _input;
    TestClock clock;
    TestHost far;
    TestPeer peer{ u"ann@test", u"D1", u"127.0.0.1:9" };
    struct Tracked
    {
        explicit Tracked( GSIPClient& it )
        {
            GHeapObject::trackMemory( &it, __FILE__, __FUNCTION__, __LINE__, "GSIPClient" );
        }
    };
    GSIPClient client{ &peer.port };
    Tracked tracked{ client };
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    Layer layer( input );
    for( int moves = 0; moves < MOST_MOVES && !input.empty( ); ++moves ) layer.move( );
    return 0;
}
