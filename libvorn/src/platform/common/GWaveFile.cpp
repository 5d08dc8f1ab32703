#include "platform/common/GWaveFile.h"

#include "base/GBytes.h"

#include <algorithm>

// RIFF <size> WAVE, then chunks of <name:4> <size:4> <bytes>, padded to an even size. "fmt " begins with
// format:2 channels:2 frequency:4 bytes-a-second:4 block:2 bits:2.
bool GWaveFile::parse( const GString& file )
{
    constexpr size_t HEADER = 12, CHUNK = 8, FORMAT = 16;
    constexpr int PCM = 1;
    if( file.size( ) < HEADER || file.compare( 0, 4, "RIFF" ) != 0 || file.compare( 8, 4, "WAVE" ) != 0 ) return false;
    bool hasFormat = false;
    for( size_t at = HEADER; at + CHUNK <= file.size( ); )
    {
        const std::string_view name = std::string_view( file ).substr( at, 4 );
        const size_t size =
            std::min( static_cast<size_t>( GReadU32( file.data( ) + at + 4 ) ), file.size( ) - at - CHUNK );
        const char* data = file.data( ) + at + CHUNK;
        if( name == "fmt " && size >= FORMAT )
        {
            channels = GReadU16( data + 2 );
            frequency = static_cast<int>( std::min( GReadU32( data + 4 ), 1000000U ) );
            bits = GReadU16( data + 14 );
            hasFormat = GReadU16( data ) == PCM && ( channels == 1 || channels == 2 ) && ( bits == 8 || bits == 16 ) &&
                        frequency >= 4000 && frequency <= 192000;
            if( !hasFormat ) return false;
        }
        if( name == "data" )
        {
            const size_t frame = static_cast<size_t>( std::max( 1, channels * bits / 8 ) );
            samples.assign( data, size - size % frame );
            return hasFormat && !samples.empty( );
        }
        at += CHUNK + size + size % 2;
    }
    return false;
}
