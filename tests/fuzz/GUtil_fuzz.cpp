// Names, numbers and options of any bytes. UTF-8, escapes and lists have targets of their own.
#include "Fuzz.h"

#include "base/GDebug.h"

namespace
{
void requireNames( const GWString& text )
{
    const GWString name = GSanitizeName( text );
    Fuzz::require( GSanitizeName( name ) == name && name.size( ) <= text.size( ) );
    Fuzz::require( !GValidUserID( text ) || name == text );
    Fuzz::require( !GValidDeviceID( text ) || ( text.size( ) <= 64 && text.find( u'/' ) == GWString::npos ) );
    const GWString lower = GToLower( text );
    Fuzz::require( GToLower( lower ) == lower && lower.size( ) == text.size( ) && GCaseEquals( text, lower ) );
    Fuzz::require( GLogIsSecret( text ) == lower.ends_with( u"password" ) );
    Fuzz::require( GLogMask( text + u"PassWord", u"secret" ).find( u"secret" ) == GWString::npos );
}
void requireNumbers( const GWString& text )
{
    const GString bytes = GWideToUTF8( text );
    const int64_t number = GCalc( text );
    Fuzz::require( GCalc( GNumber( number ) ) == number );
    Fuzz::require( GCalc( std::string_view( bytes ) ) == number && GTest( bytes ) == GTest( text ) );
    Fuzz::require( GTest( text ) == ( number > 0 || GToLower( text ) == u"true" ) );
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    const std::vector<char> rest = Fuzz::Input( data, size ).rest( );
    const GWString text = GUTF8ToWide( std::string_view( rest.data( ), rest.size( ) ) );
    requireNames( text );
    requireNumbers( text );
    return 0;
}
