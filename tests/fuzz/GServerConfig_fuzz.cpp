// An operator's file of any bytes is taken or refused with a reason.
#include "Fuzz.h"
#include "server/core/GServerConfig.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    GServerConfig config;
    GString error;
    const bool good = config.parse( GString( reinterpret_cast<const char*>( data ), size ), error );
    Fuzz::require( good || !error.empty( ) );
    if( !good ) return 0;
    Fuzz::require( config.finish( error ) || !error.empty( ) );
    config.hasRole( "relay" );
    GServerHost::split( config.signalling );
    return 0;
}
