// Text of any bytes: UTF-8, escapes, lists and numbers.
#include "Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    const std::vector<char> bytes = Fuzz::Input( data, size ).rest( );
    const GString raw( bytes.begin( ), bytes.end( ) );
    const GWString text = GUTF8ToWide( raw );
    Fuzz::require( text.size( ) <= raw.size( ) && GUTF8ToWide( GWideToUTF8( text ) ) == text );
    GUnescape( raw );
    Fuzz::require( GUnescape( GEscape( raw, "=," ) ) == raw );
    const GWString name = GSanitizeName( text );
    Fuzz::require( GSanitizeName( name ) == name && ( !GValidUserID( text ) || name == text ) );
    GSplitList( text );
    GCalc( text );
    return 0;
}
