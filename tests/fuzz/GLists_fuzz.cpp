// The items of a list are what lies between its delimiters. The first line names other delimiters than the usual ones.
#include "Fuzz.h"

namespace
{
bool isBlank( char16_t unit )
{
    return unit == u' ' || unit == u'\t' || unit == u'\r' || unit == u'\n';
}
// Unit by unit: an item begins and ends with what is no blank.
GStringList reference( const GWString& text, const GWString& delimiters )
{
    GStringList list;
    GWString item;
    for( size_t i = 0; i <= text.size( ); ++i )
    {
        if( i < text.size( ) && delimiters.find( text[i] ) == GWString::npos )
        {
            if( !item.empty( ) || !isBlank( text[i] ) ) item += text[i];
            continue;
        }
        while( !item.empty( ) && isBlank( item.back( ) ) ) item.pop_back( );
        if( !item.empty( ) ) list.push_back( item );
        item.clear( );
    }
    return list;
}
void requireSplit( const GWString& text, const GWString& delimiters )
{
    const GStringList list = GSplitList( text, delimiters );
    Fuzz::require( list == reference( text, delimiters ) );
    size_t begin = 0;
    GWStringView item;
    for( const GWString& expected : list )
    {
        Fuzz::require( GSplitNext( text, begin, item, delimiters ) && item == expected );
        Fuzz::require( GTrim( expected ) == expected && GListContains( list, expected ) );
    }
    Fuzz::require( !GSplitNext( text, begin, item, delimiters ) );
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    const GWString delimiters = input.wideLine( );
    const std::vector<char> rest = input.rest( );
    const GWString text = GUTF8ToWide( std::string_view( rest.data( ), rest.size( ) ) );
    requireSplit( text, delimiters );
    requireSplit( text, u"\t\n,;" );
    const GStringList list = GSplitList( text );
    Fuzz::require( GSplitList( GJoinList( list ) ) == list );
    return 0;
}
