#include "GSkinCheckText.h"

#include "base/GUtil.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

namespace
{
constexpr GWStringView STYLES = u"biusnmcre";

// How many letters must be put in, taken out or changed.
size_t getDistance( const GWString& one, const GWString& other )
{
    std::vector<size_t> row( other.size( ) + 1 );
    for( size_t j = 0; j < row.size( ); ++j ) row[j] = j;
    for( size_t i = 0; i < one.size( ); ++i )
    {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for( size_t j = 0; j < other.size( ); ++j )
        {
            const size_t changed = diagonal + ( one[i] == other[j] ? 0 : 1 );
            diagonal = row[j + 1];
            row[j + 1] = std::min( { changed, row[j] + 1, row[j + 1] + 1 } );
        }
    }
    return row.back( );
}

bool isHex( char16_t c )
{
    return ( c >= u'0' && c <= u'9' ) || ( c >= u'a' && c <= u'f' ) || ( c >= u'A' && c <= u'F' );
}

// The families that fontconfig knows, by their names in lower case; empty when there is no telling.
const std::map<GWString, GWString>& getFaces( )
{
    static const std::map<GWString, GWString> faces = []
    {
        std::map<GWString, GWString> out;
        const std::unique_ptr<FILE, int ( * )( FILE* )> list( popen( "fc-list : family 2>/dev/null", "r" ), pclose );
        char line[512];
        while( list && std::fgets( line, sizeof( line ), list.get( ) ) )
            for( const GWString& name : GSplitList( GUTF8ToWide( line ) ) ) out.emplace( GToLower( name ), name );
        return out;
    }( );
    return faces;
}
} // namespace

GWString GSkinSuggest( const GWString& text, const GStringVector& known )
{
    const GWString lower = GToLower( text );
    const GWString* best = nullptr;
    size_t least = ( lower.size( ) < 4 ? 1 : std::max<size_t>( 2, lower.size( ) / 3 ) ) + 1;
    for( const GWString& candidate : known )
    {
        const size_t distance = candidate.empty( ) ? least : getDistance( lower, GToLower( candidate ) );
        if( distance >= least ) continue;
        least = distance;
        best = &candidate;
    }
    return best ? GConcat( u"; did you mean '", *best, u"'?" ) : GWString( );
}

void GSkinCheckColour( const GWString& text, const GSkinReport& report )
{
    if( text.empty( ) ) return;
    const GWStringView digits = GWStringView( text ).substr( text.front( ) == u'#' ? 1 : 0 );
    if( ( digits.size( ) != 6 && digits.size( ) != 8 ) || !std::ranges::all_of( digits, isHex ) )
        report( GConcat( u"'", text, u"' is no colour: #RRGGBB or #RRGGBBAA" ) );
}

void GSkinCheckFont( const GWString& text, const GSkinReport& report )
{
    GStringVector fields;
    for( size_t at = 0; at <= text.size( ); )
    {
        const size_t comma = std::min( text.find( u',', at ), text.size( ) );
        fields.push_back( GTrim( GWStringView( text ).substr( at, comma - at ) ) );
        at = comma + 1;
    }
    if( fields.size( ) > 4 ) report( GConcat( u"'", text, u"' has more than size, style, colour and face" ) );
    fields.resize( 4 );
    const auto isDigit = []( char16_t c ) { return c >= u'0' && c <= u'9'; };
    if( !std::ranges::all_of( fields[0], isDigit ) ) report( GConcat( u"'", fields[0], u"' is no size of a font" ) );
    for( const char16_t letter : GToLower( fields[1] ) )
        if( STYLES.find( letter ) == GWStringView::npos )
            report( GConcat( u"'", letter, u"' is no style of a font: ", STYLES ) );
    GSkinCheckColour( fields[2], report );
    if( fields[3].empty( ) || getFaces( ).empty( ) || getFaces( ).contains( GToLower( fields[3] ) ) ) return;
    GStringVector faces;
    for( const auto& [lower, name] : getFaces( ) ) faces.push_back( name );
    report( GConcat( u"the font '", fields[3], u"' is not installed", GSkinSuggest( fields[3], faces ) ) );
}

void GSkinCheckNumber( const GWString& text, const GSkinReport& report )
{
    const auto isPart = []( char16_t c )
    { return ( c >= u'0' && c <= u'9' ) || GWStringView( u"+-*/() \t\n" ).find( c ) != GWStringView::npos; };
    if( !std::ranges::all_of( text, isPart ) ) report( GConcat( u"'", text, u"' is no number" ) );
}
