// Wave files: whatever is claimed in them, samples come from the file alone and in whole frames.
#include "Fuzz.h"
#include "libvorn/src/platform/common/GWaveFile.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    const GString file( reinterpret_cast<const char*>( data ), size );
    GWaveFile wave;
    if( !wave.parse( file ) ) return 0;
    Fuzz::require( !wave.samples.empty( ) && wave.samples.size( ) < size );
    Fuzz::require( wave.channels >= 1 && wave.channels <= 2 && ( wave.bits == 8 || wave.bits == 16 ) );
    Fuzz::require( wave.frequency >= 4000 && wave.frequency <= 192000 );
    Fuzz::require( wave.samples.size( ) % static_cast<size_t>( wave.channels * wave.bits / 8 ) == 0 );
    return 0;
}
