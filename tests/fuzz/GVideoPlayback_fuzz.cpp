// The playback service and its streams under the packets of a bad peer and of strangers, in any order, while time passes and commands
// come; whatever they did, what an honest peer sends next is shown. An input is a row of steps, a letter each:
//   v N, a N     her next picture, her next sound; N: format word out of a list
//   m            the next of them with bytes changed            w N     with any word
//   r N          a packet of hers again                         x LINE  a datagram of any bytes
//   s            the next step's packet comes from a stranger   k N     a number that the count goes on from
//   t N          time passes, in tens of milliseconds           o, c    her stream opens, closes
//   b, g         switches the remedy, the sharing of a screen   n N     another SSRC
#include "Fuzz.h"
#include "client/media/GSpeexEncoder.h"
#include "client/media/GTheoraEncoder.h"
#include "client/media/GVideoPlaybackService.h"
#include "client/transport/GRTP.h"
#include "platform/GThread.h"
#include "platform/GTime.h"

#include <atomic>
#include <ctime>
#include <memory>

namespace
{
constexpr char16_t HONEST[] = u"10.0.0.9:5000";
constexpr char16_t BAD[] = u"10.0.0.66:6666";
constexpr char16_t STRANGER[] = u"10.9.9.9:9";
constexpr char16_t QUEUE[] = u"GVideoPlaybackService_commandQueue";
constexpr uint32_t EDGES[] = { 48, 48, 48, 64, 16, 256, 0, 1, 47, 1040, 0x80000030, 0xFFFFFFFF };
constexpr uint32_t RATES[] = { 8000, 8000, 8000, 22000, 48000, 0, 1, 7999, 48001, 0x80001F40, 0xFFFFFFFF };
constexpr int MOST_STEPS = 40;
std::atomic<uint64_t> now_;

// The threads of a renderer sleep a little and see no time pass.
void sleepBriefly( int64_t )
{
    const timespec little{ 0, 100000 };
    nanosleep( &little, nullptr );
}

GString picture( )
{
    const std::unique_ptr<GTheoraEncoder> encoder(
        GSAFENEW( GTheoraEncoder, ( { GIT_RGB24, 48, 48 }, { 0, 0, 48, 48 }, 48, 48, 5 ) ) );
    GString pixels( 48 * 48 * 3, '\0' ), out;
    for( size_t i = 0; i < pixels.size( ); ++i ) pixels[i] = static_cast<char>( i * i / 7 );
    encoder->encode( pixels.data( ), static_cast<int>( pixels.size( ) ), out );
    return out;
}
GString sound( )
{
    const std::unique_ptr<GSpeexEncoder> encoder( GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( 8000 ) ) ) );
    GString samples, out;
    for( int i = 0; i < 2240; ++i ) samples += static_cast<char>( i * i / 11 );
    encoder->encode( samples.data( ), static_cast<int>( samples.size( ) ), out );
    return out;
}

class Siege
{
public:
    Siege( )
    {
        now_ = 13000000000000000ULL;
        service.reset( GSAFENEW( GVideoPlaybackService, ( &instance, &port ) ) );
        GTimeSetSource( [] { return now_.load( ); } );
        GThreadSetSleep( sleepBriefly );
        command( u"OPEN", u"ben@test@d1", HONEST );
        command( u"OPEN", u"eve@test@d2", BAD );
        loop( );
    }
    ~Siege( )
    {
        service->_bGThreadObject_safe_onShutdown( );
        service.reset( );
        GThreadSetSleep( nullptr );
        GTimeSetSource( nullptr );
    }
    void step( Fuzz::Input& input )
    {
        switch( input.byte( ) )
        {
        case 'v': media( GRTP_VIDEO, EDGES[input.byte( ) % std::size( EDGES )] ); break;
        case 'a': media( GRTP_AUDIO, RATES[input.byte( ) % std::size( RATES )] ); break;
        case 'm':
            changes = input.byte( ) % 8;
            change = input.line( );
            break;
        case 'w':
            media( input.byte( ) & 1 ? GRTP_AUDIO : GRTP_VIDEO, static_cast<uint32_t>( input.number( 65534 ) ) );
            break;
        case 'r':
            if( !sent.empty( ) ) deliver( sent[input.byte( ) % sent.size( )] );
            break;
        case 'x': deliver( input.line( ) ); break;
        case 's': fromStranger = true; break;
        case 'k': audioSequence = videoSequence = static_cast<uint16_t>( input.number( 65535 ) ); break;
        case 't': now_ += static_cast<uint64_t>( input.byte( ) ) * 10000; break;
        case 'o': command( u"OPEN", u"eve@test@d2", BAD ); break;
        case 'c': command( u"CLOSE", u"eve@test@d2", BAD ); break;
        case 'b': instance.set( u"Robust_Media", !instance.test( u"Robust_Media" ) ); break;
        case 'g':
            instance.set( u"GScreenService_sendStreamActive", !instance.test( u"GScreenService_sendStreamActive" ) );
            break;
        case 'n': ssrc = input.byte( ); break;
        default: break;
        }
        loop( );
    }
    void verifyHonest( )
    {
        instance.clear( u"GScreenService_sendStreamActive" );
        instance.clear( u"ben@test_Image" );
        GString packet;
        compose( packet, GRTP_VIDEO, 1, 48, honestPicture( ) );
        fromStranger = false;
        deliver( packet, HONEST );
        loop( );
        loop( );
        Fuzz::require( instance.isSet( u"ben@test_Image" ) );
    }

private:
    static const GString& honestPicture( )
    {
        static const GString packet = picture( );
        return packet;
    }
    static const GString& honestSound( )
    {
        static const GString packet = sound( );
        return packet;
    }
    void compose( GString& out, int type, uint16_t sequence, uint32_t word, const GString& frame ) const
    {
        const char prefix[4] = { static_cast<char>( word ), static_cast<char>( word >> 8 ),
                                 static_cast<char>( word >> 16 ), static_cast<char>( word >> 24 ) };
        GRTPCompose( out, type, sequence, static_cast<uint32_t>( now_ / 10000 ), ssrc, prefix, 4, frame.data( ),
                     static_cast<int>( frame.size( ) ) );
    }
    void media( int type, uint32_t word )
    {
        GString packet;
        compose( packet, type, type == GRTP_AUDIO ? ++audioSequence : ++videoSequence, word,
                 type == GRTP_AUDIO ? honestSound( ) : honestPicture( ) );
        for( size_t i = 0; i + 2 < change.size( ) && changes > 0; i += 3, --changes )
        {
            const size_t at =
                static_cast<size_t>( static_cast<uint8_t>( change[i] ) << 8 | static_cast<uint8_t>( change[i + 1] ) );
            packet[at % packet.size( )] = change[i + 2];
        }
        change.clear( );
        if( sent.size( ) < 64 ) sent.push_back( packet );
        deliver( packet );
    }
    void deliver( const GString& packet, GWStringView host = BAD )
    {
        GMegaPortBucket* bucket = port.getEmtpyBucket( );
        bucket->buffer = packet;
        bucket->remoteHost = fromStranger ? STRANGER : host;
        fromStranger = false;
        port.fillRTPBucket( bucket );
    }
    void command( GWStringView method, GWStringView name, GWStringView host )
    {
        GHTTPHeaders headers( method );
        headers.set( u"Buddy-Device-GUID", name );
        headers.set( u"Recv-From-Host", host );
        instance.enqueue( QUEUE, headers );
    }
    void loop( )
    {
        const GObjectLock scope( *service );
        service->pass( 0 );
    }

    GInstance instance{ u"media-fuzz-settings.ini" };
    GMegaPort port{ u"fuzz" };
    std::unique_ptr<GVideoPlaybackService> service;
    std::vector<GString> sent;
    GString change;
    int changes = 0;
    bool fromStranger = false;
    uint16_t audioSequence = 0;
    uint16_t videoSequence = 0;
    uint32_t ssrc = 7;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    Siege siege;
    for( int steps = 0; steps < MOST_STEPS && !input.empty( ); ++steps ) siege.step( input );
    siege.verifyHonest( );
    return 0;
}
