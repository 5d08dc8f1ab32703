// The shared port under any datagrams, in any order of filling, taking, sending and forgetting. An input is a row of steps, a letter each:
//   r LINE, s LINE   a datagram for media, for signalling       b, e    a batch begins, ends
//   n N LINE         N such datagrams for media at once          t N     takes from the N-th list        z   forgets all
//   u, c             lends a port, a connection                  g N LINE / LINE   sends: N + 1: by the relay; to the first line
// Nothing is lost (what no list and no pool has shows as a leak), media come from the list of their type, and the frames of the relay are
// the messages that they stand for.
#include "Fuzz.h"
#include "FuzzNet.h"
#include "client/transport/GMegaPort.h"
#include "client/transport/GRTP.h"

namespace
{
constexpr char16_t GLOBAL_HOST[] = u"5.5.5.5:7000";
constexpr int MAX_STEPS = 200;

class Use
{
public:
    Use( )
    {
        FuzzNet::world( ) = { };
        FuzzNet::world( ).onStreamed = [this]( std::string_view bytes ) { streamed += bytes; };
        udp = GNetUDPPortOpen( FuzzNet::LOCAL_HOST );
        tcp = GNetTCPSocketOpen( u"127.0.0.1:9" );
    }
    ~Use( )
    {
        port.endFill( );
        for( int type = 0; type < 256; ++type ) take( type );
        take( -1 );
        GNetUDPPortClose( udp );
        GNetTCPSocketClose( tcp );
    }
    void step( Fuzz::Input& input )
    {
        switch( input.byte( ) )
        {
        case 'r': fill( true, input.line( ), 1 ); break;
        case 's': fill( false, input.line( ), 1 ); break;
        case 'n':
        {
            const int count = input.byte( ) * 16;
            fill( true, input.line( ), count );
            break;
        }
        case 'b': port.beginFill( ); break;
        case 'e': port.endFill( ); break;
        case 't': take( input.byte( ) - 1 ); break;
        case 'z': port.reset( ); break;
        case 'u': port.setUDPPort( udp ); break;
        case 'c': port.setTCPSocket( tcp, GLOBAL_HOST ); break;
        case 'o': port.setRobust( input.byte( ) & 1 ); break;
        case 'g': send( input ); break;
        default: break;
        }
    }

private:
    void fill( bool media, const GString& bytes, int count )
    {
        for( int i = 0; i < count; ++i )
        {
            GMegaPortBucket* bucket = port.getEmtpyBucket( );
            bucket->buffer = bytes;
            media ? port.fillRTPBucket( bucket ) : port.fillSIPBucket( bucket );
        }
    }
    void take( int type )
    {
        while( GMegaPortBucket* bucket = type < 0 ? port.getSIPBucket( ) : port.getRTPBucket( type ) )
        {
            if( type >= 0 ) verify( *bucket, type );
            port.returnEmptyBucket( bucket );
        }
    }
    static void verify( const GMegaPortBucket& bucket, int type )
    {
        GRTPHeader header;
        int remaining = 0;
        Fuzz::require(
            GDecomposeRTP( bucket.buffer.data( ), static_cast<int>( bucket.buffer.size( ) ), header, remaining ) );
        Fuzz::require( header.payloadType == type || ( type == GRTP_AUDIO && header.payloadType == GRTP_RTCPSR ) );
        Fuzz::require( GWITHIN( 1, type, 4 ) );
    }
    void send( Fuzz::Input& input )
    {
        const bool relayed = input.byte( ) & 1;
        const GWString to = input.wideLine( );
        const GString bytes = input.line( );
        streamed.clear( );
        if( bytes.empty( ) ) return;
        port.send( relayed ? GLOBAL_HOST : FuzzNet::LOCAL_HOST, to, bytes.data( ), static_cast<int>( bytes.size( ) ) );
        if( streamed.empty( ) ) return;
        GHTTPHeaders expected( u"SENDUDP" );
        expected.set( u"Remote-Host", to );
        expected.addContent( bytes );
        Fuzz::require( streamed == expected.serialize( ) );
        Fuzz::require( GHTTPHeaders::measure( streamed.data( ), static_cast<int>( streamed.size( ) ) ) ==
                       static_cast<int64_t>( streamed.size( ) ) );
    }

    GMegaPort port{ u"fuzz" };
    GNetUDPPort* udp = nullptr;
    GNetTCPSocket* tcp = nullptr;
    GString streamed;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    Use use;
    for( int steps = 0; steps < MAX_STEPS && !input.empty( ); ++steps ) use.step( input );
    return 0;
}
