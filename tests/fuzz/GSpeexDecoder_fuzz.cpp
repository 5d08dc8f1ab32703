// Any packets decode to whole frames or are refused, also after others that were refused. An input is a rate and then packets: bytes from
// nowhere, or changes to real packets, which reach deeper; their length is made to fit unless the input says otherwise.
#include "Fuzz.h"
#include "base/GBytes.h"
#include "client/media/GSpeexDecoder.h"
#include "client/media/GSpeexEncoder.h"

#include <memory>

namespace
{
const GString& real( )
{
    static const GString packet = []
    {
        const std::unique_ptr<GSpeexEncoder> encoder( GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( 8000 ) ) ) );
        GString samples, out;
        for( int i = 0; i < 160 * 4 * 2; ++i ) samples += static_cast<char>( i * i / 11 );
        encoder->encode( samples.data( ), static_cast<int>( samples.size( ) ), out );
        return out;
    }( );
    return packet;
}

GString packetOf( Fuzz::Input& input )
{
    const uint8_t kind = input.byte( );
    GString out( kind & 1 ? real( ) : GString( 4, '\0' ) );
    if( kind & 1 )
        for( int changes = kind >> 2 & 7; changes > 0; --changes )
            out[static_cast<size_t>( input.number( static_cast<int>( out.size( ) ) - 1 ) )] =
                static_cast<char>( input.byte( ) );
    else
        for( int count = input.byte( ); count > 0; --count ) out += static_cast<char>( input.byte( ) );
    if( kind & 2 )
        out.resize( static_cast<size_t>( input.number( 200 ) ) + 1 );
    else
        GWriteU32( out.data( ), static_cast<uint32_t>( out.size( ) - 4 ) );
    return out;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    GString book;
    GSpeexEncoder_generateCodebook( book, 8000 + input.number( 40000 ) );
    const std::unique_ptr<GSpeexDecoder> decoder(
        GSAFENEW( GSpeexDecoder, ( book.data( ), static_cast<int>( book.size( ) ) ) ) );
    GString samples;
    for( int packets = 0; packets < 32 && !input.empty( ); ++packets )
    {
        const GString packet = packetOf( input );
        const std::vector<char> exact( packet.begin( ), packet.end( ) );
        const bool taken = decoder->decode( exact.data( ), static_cast<int>( exact.size( ) ), samples );
        Fuzz::require( samples.size( ) % 320 == 0 && samples.size( ) <= 256 * 320 );
        Fuzz::require( taken ? samples.size( ) >= 640 : samples.empty( ) );
    }
    Fuzz::require( decoder->decode( real( ).data( ), static_cast<int>( real( ).size( ) ), samples ) );
    return 0;
}
