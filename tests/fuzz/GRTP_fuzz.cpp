// Every decomposer stays inside its packet, and points just behind its fixed part or refuses and leaves nothing; a sender report that is
// taken holds its name.
#include "Fuzz.h"
#include "client/transport/GRTP.h"

namespace
{
template <typename Fields>
void cut( const char* ( *decompose )(const char*, int, Fields&, int&), const std::vector<char>& packet )
{
    Fields fields;
    int remaining = -1;
    const int length = static_cast<int>( packet.size( ) );
    const char* behind = decompose( packet.data( ), length, fields, remaining );
    const GRTPHeader& head = fields;
    if( !behind ) Fuzz::require( !remaining && !head.version && !head.sequence && !head.ssrc );
    if( !behind ) return;
    Fuzz::require( remaining >= 0 && behind + remaining == packet.data( ) + length );
}

void readWindows( const std::vector<char>& packet )
{
    GRTPSSLayoutChanged layout;
    int remaining = 0;
    const char* windows =
        GDecomposeRTPSSLAYOUTCHANGED( packet.data( ), static_cast<int>( packet.size( ) ), layout, remaining );
    if( !windows ) return;
    const int count = std::min<int>( layout.numWindows, remaining / GRTPSS_WINDOW_SIZE );
    for( int i = 0; i < count; ++i )
    {
        char again[GRTPSS_WINDOW_SIZE] = { };
        GRTPSSWriteWindow( again, 0, GRTPSSReadWindow( windows, i ) );
        Fuzz::require( std::equal( again, again + sizeof( again ), windows + i * GRTPSS_WINDOW_SIZE ) );
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    const std::vector<char> packet = Fuzz::Input( data, size ).rest( );
    if( packet.empty( ) ) return 0;
    const int length = static_cast<int>( packet.size( ) );
    cut( GDecomposeRTP, packet );
    cut( GDecomposeRTPFT, packet );
    cut( GDecomposeRTPFTINFO, packet );
    cut( GDecomposeRTPFTGETBLOCKS, packet );
    cut( GDecomposeRTPFTACK, packet );
    cut( GDecomposeRTPFTBLOCK, packet );
    cut( GDecomposeRTPSS, packet );
    cut( GDecomposeRTPSSLAYOUTCHANGED, packet );
    cut( GDecomposeRTPSSMOUSECHANGED, packet );
    cut( GDecomposeRTPSSMOUSEEVENT, packet );
    cut( GDecomposeRTPSSKEYEVENT, packet );
    cut( GDecomposeRTPSSREGIONCHANGED, packet );
    cut( GDecomposeRTPSSACK, packet );
    readWindows( packet );
    int payloadType = 0, remaining = 0;
    uint16_t sequence = 0;
    uint32_t timestamp = 0, ssrc = 0;
    const char* frame = GRTPDecompose( packet.data( ), length, payloadType, sequence, timestamp, ssrc, remaining );
    Fuzz::require( !frame || frame + remaining == packet.data( ) + length );
    GWString name;
    if( GRTPIsRTCPSR( packet.data( ), length ) && length > GRTCPSR_FIXED_SIZE )
    {
        const int told = static_cast<uint8_t>( packet[37] );
        const bool taken = GRTCPSRDecompose( packet.data( ), length, name );
        Fuzz::require( taken == ( length >= GRTCPSR_FIXED_SIZE + told ) );
        Fuzz::require( name.size( ) <= static_cast<size_t>( taken ? told : 0 ) );
    }
    return 0;
}
