// What is escaped holds no line end, tab or bare extra character, and comes back as it was. The first line names the extra ones.
#include "Fuzz.h"

namespace
{
// No extra character is left without its backslash.
void requireEscaped( const GString& escaped, const GString& extra )
{
    Fuzz::require( escaped.find_first_of( "\t\n\r" ) == GString::npos );
    for( size_t i = 0; i < escaped.size( ); ++i )
    {
        if( escaped[i] == '\\' )
            Fuzz::require( ++i < escaped.size( ) );
        else
            Fuzz::require( extra.find( escaped[i] ) == GString::npos );
    }
}
void requireRoundTrip( const GString& text, const GString& extra )
{
    const GString escaped = GEscape( text, extra );
    requireEscaped( escaped, extra );
    Fuzz::require( GUnescape( escaped ) == text );
    GString appended = "x";
    GAppendEscaped( appended, text, extra );
    Fuzz::require( appended == "x" + escaped );
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    GString extra = input.line( );
    // The letters of the escapes themselves can't be extra.
    std::erase_if( extra, []( char unit ) { return unit == 't' || unit == 'n' || unit == 'r'; } );
    const std::vector<char> rest = input.rest( );
    const GString text( rest.begin( ), rest.end( ) );
    requireRoundTrip( text, extra );
    requireRoundTrip( text, "" );
    requireRoundTrip( text, ": " );
    const GString plain = GUnescape( text );
    GString reused = "before";
    GUnescape( text, reused );
    Fuzz::require( reused == plain && plain.size( ) <= text.size( ) );
    Fuzz::require( text.find( '\\' ) != GString::npos || plain == text );
    return 0;
}
