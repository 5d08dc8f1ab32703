// Bytes of any kind decode as the rules say, and 16-bit text of any kind survives the way through bytes.
#include "Fuzz.h"

namespace
{
bool isContinuation( const GString& bytes, size_t i )
{
    return i < bytes.size( ) && ( bytes[i] & 0xC0 ) == 0x80;
}
// The rules one by one: one, two and three bytes make a character, everything else is an "X".
GWString reference( const GString& bytes )
{
    GWString out;
    for( size_t i = 0; i < bytes.size( ); )
    {
        const auto lead = static_cast<unsigned char>( bytes[i++] );
        if( lead < 0x80 )
        {
            out += static_cast<char16_t>( lead );
            continue;
        }
        const int wanted = lead >= 0xF8 || lead < 0xC0 ? 0 : lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
        int code = lead & ( wanted == 1 ? 0x1F : 0x0F );
        int got = 0;
        for( ; got < wanted && isContinuation( bytes, i ); ++got ) code = code * 64 + ( bytes[i++] & 0x3F );
        out += wanted && got == wanted && wanted < 3 ? static_cast<char16_t>( code ) : u'X';
    }
    return out;
}
void requireRoundTrip( const GWString& text )
{
    GString bytes = "before";
    GWString back = u"before";
    GWideToUTF8( text, bytes );
    Fuzz::require( bytes == GWideToUTF8( text ) && bytes.size( ) <= text.size( ) * 3 );
    GUTF8ToWide( bytes, back );
    Fuzz::require( back == text && GUTF8ToWide( bytes ) == text );
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    const std::vector<char> rest = Fuzz::Input( data, size ).rest( );
    const GString bytes( rest.begin( ), rest.end( ) );
    const GWString text = GUTF8ToWide( bytes );
    Fuzz::require( text == reference( bytes ) );
    requireRoundTrip( text );
    GWString units;
    for( size_t i = 0; i + 1 < size; i += 2 ) units += static_cast<char16_t>( data[i] | data[i + 1] << 8 );
    requireRoundTrip( units );
    // With characters of four bytes kept, two units stand for one.
    GTextKeepAstral( true );
    requireRoundTrip( GUTF8ToWide( bytes ) );
    requireRoundTrip( units );
    GTextKeepAstral( false );
    return 0;
}
