// Any packet decodes to samples or is refused, also after others that were refused.
#include "Fuzz.h"
#include "client/media/GSpeexDecoder.h"
#include "client/media/GSpeexEncoder.h"

#include <memory>

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    constexpr int RATES[] = { 8000, 11025, 16000, 48000 };
    GString book;
    GSpeexEncoder_generateCodebook( book, RATES[input.byte( ) % 4] );
    const std::unique_ptr<GSpeexDecoder> decoder(
        GSAFENEW( GSpeexDecoder, ( book.data( ), static_cast<int>( book.size( ) ) ) ) );
    while( !input.empty( ) )
    {
        const GString packet = input.line( );
        if( packet.empty( ) ) continue;
        GString samples;
        decoder->decode( packet.data( ), static_cast<int>( packet.size( ) ), samples );
        Fuzz::require( samples.size( ) % 2 == 0 );
    }
    return 0;
}
