// A settings file of any bytes loads, and what is saved from it loads and saves as the same file for ever.
#include "Fuzz.h"

#include "runtime/GInstance.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace
{
// In memory where there is such a place: each save waits for the disk.
const GString& path( )
{
    // Outlives everything: the file is removed at the very end.
    static const auto* const text = new GString( ( std::filesystem::is_directory( "/dev/shm" ) ? "/dev/shm/" : "" ) +
                                                 ( "velmora_fuzz_" + std::to_string( getpid( ) ) + ".ini" ) );
    return *text;
}
void write( const std::vector<char>& bytes )
{
    std::ofstream( path( ), std::ios::binary ).write( bytes.data( ), static_cast<std::streamsize>( bytes.size( ) ) );
}
GString read( )
{
    std::ostringstream text;
    text << std::ifstream( path( ), std::ios::binary ).rdbuf( );
    return text.str( );
}
// The file after one more run of the program.
GString next( )
{
    {
        const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( GUTF8ToWide( path( ) ) ) ) );
        instance->logDump( );
    }
    return read( );
}
// Every line of a saved file is on the blackboard.
void requireLoaded( const GString& text )
{
    const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( GUTF8ToWide( path( ) ) ) ) );
    std::istringstream lines( text );
    for( GString line; std::getline( lines, line ) && !line.empty( ); )
    {
        size_t colon = 0;
        while( line[colon] != ':' ) colon += line[colon] == '\\' ? 2 : 1;
        const GWString name = GUTF8ToWide( GUnescape( line.substr( 0, colon ) ) );
        Fuzz::require( line[colon + 1] == ' ' && GToLower( name ) == name );
        Fuzz::require( instance->getRaw( name ) == GUnescape( line.substr( colon + 2 ) ) );
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    static const bool removes = std::atexit( []( ) { std::filesystem::remove( path( ) ); } ) == 0;
    static_cast<void>( removes );
    write( Fuzz::Input( data, size ).rest( ) );
    // A value that begins with blanks loses them on the way back: the second run is the first that has none.
    next( );
    const GString saved = next( );
    Fuzz::require( saved.ends_with( '\n' ) );
    requireLoaded( saved );
    Fuzz::require( next( ) == saved );
    return 0;
}
