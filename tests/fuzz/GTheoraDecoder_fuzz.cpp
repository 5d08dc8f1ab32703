// The codec takes any codebook and any frame. An input that begins with an odd byte changes bytes of a real codebook and of real
// frames, which reaches deeper than bytes from nowhere.
#include "Fuzz.h"
#include "client/media/GTheoraDecoder.h"
#include "client/media/GTheoraEncoder.h"
#include "image/GImage.h"

#include <memory>

namespace
{
constexpr int EDGE = 32;

const GString& codebook( )
{
    static const GString book = []
    {
        GString out;
        GTheoraEncoder_generateCodebook( EDGE, EDGE, out );
        return out;
    }( );
    return book;
}

const GString& frame( )
{
    static const GString packet = []
    {
        const GImageFormat format{ GIT_RGB24, EDGE, EDGE };
        const GRect whole{ 0, 0, EDGE, EDGE };
        const std::unique_ptr<GTheoraEncoder> encoder( GSAFENEW( GTheoraEncoder, ( format, whole, EDGE, EDGE, 5 ) ) );
        GString pixels( EDGE * EDGE * 3, '\0' );
        for( size_t i = 0; i < pixels.size( ); ++i ) pixels[i] = static_cast<char>( i * i / 7 );
        GString out;
        encoder->encode( pixels.data( ), static_cast<int>( pixels.size( ) ), out );
        return out;
    }( );
    return packet;
}

void change( Fuzz::Input& input, GString& bytes )
{
    for( int changes = input.byte( ) % 8; changes > 0 && !bytes.empty( ); --changes )
    {
        const int at = input.number( static_cast<int>( bytes.size( ) ) - 1 );
        bytes[static_cast<size_t>( at )] = static_cast<char>( input.byte( ) );
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    const bool real = input.byte( ) & 1;
    GString book = codebook( );
    const uint8_t which = input.byte( );
    if( which & 1 ) change( input, book );
    const std::unique_ptr<GTheoraDecoder> decoder(
        GSAFENEW( GTheoraDecoder, ( book.data( ), static_cast<int>( book.size( ) ) ) ) );
    if( !decoder->isValid( ) ) return 0;
    for( int frames = 0; frames < 4; ++frames )
    {
        GString packet = frame( );
        if( real )
            change( input, packet );
        else
            packet = input.line( );
        GImageFormat format;
        GString pixels;
        if( decoder->decode( packet.data( ), static_cast<int>( packet.size( ) ), format, pixels ) )
            Fuzz::require( static_cast<int64_t>( pixels.size( ) ) >= GImageSize( format ) );
    }
    return 0;
}
