// A command line of any bytes: every option that is found can be read.
#include "Fuzz.h"
#include "base/GCommandLine.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    const GString name = input.line( );
    const std::vector<char> text = input.rest( );
    const GCommandLine line( GString( text.begin( ), text.end( ) ) );
    GString value = "untouched";
    Fuzz::require( line.get( name, value ) == line.contains( name ) );
    Fuzz::require( value == ( line.contains( name ) ? line.get( name ) : "untouched" ) );
    return 0;
}
