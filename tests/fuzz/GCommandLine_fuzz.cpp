// A command line of any bytes: what the tokens say can be read back, whatever else stands between them.
#include "Fuzz.h"
#include "base/GCommandLine.h"

namespace
{
std::vector<GString> cutTokens( const GString& text )
{
    std::vector<GString> tokens;
    for( const char letter : text + ' ' )
        if( letter != ' ' )
        {
            if( tokens.empty( ) ) tokens.emplace_back( );
            tokens.back( ) += letter;
        }
        else if( tokens.empty( ) || !tokens.back( ).empty( ) )
            tokens.emplace_back( );
    tokens.pop_back( );
    return tokens;
}

bool isOption( const GString& token )
{
    return token[0] == '-';
}

// Each option is there under any case of its name, and has the value that follows its last mention or none.
void checkOptions( const GCommandLine& line, const std::vector<GString>& tokens )
{
    for( size_t i = 0; i < tokens.size( ); ++i )
    {
        if( !isOption( tokens[i] ) ) continue;
        const GString name = tokens[i].substr( 1 );
        Fuzz::require( line.contains( name ) && line.contains( GToLower( name ) ) );
        Fuzz::require( line.get( name ) == line.get( GToLower( name ) ) );
        const bool isNumber =
            name.find_first_not_of( "0123456789" ) == GString::npos; // Plain tokens have such names too.
        const auto isSame = [&]( const GString& other )
        { return isOption( other ) && GToLower( other ) == GToLower( tokens[i] ); };
        if( isNumber || std::any_of( tokens.begin( ) + static_cast<ptrdiff_t>( i ) + 1, tokens.end( ), isSame ) )
            continue;
        const bool hasValue = i + 1 < tokens.size( ) && !isOption( tokens[i + 1] );
        Fuzz::require( line.get( name ) == ( hasValue ? tokens[i + 1] : "" ) );
    }
}

// What follows neither an option nor its own kind's option is numbered from 0, without a gap.
void checkNumbers( const GCommandLine& line, const std::vector<GString>& tokens )
{
    int count = 0;
    bool isNamed = false;
    for( const GString& token : tokens )
    {
        if( !isOption( token ) && !isNamed ) Fuzz::require( line.contains( std::to_string( count++ ) ) );
        isNamed = isOption( token ) && token.size( ) > 1;
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    const GString name = input.line( );
    const std::vector<char> bytes = input.rest( );
    const GString text( bytes.begin( ), bytes.end( ) );
    const GCommandLine line( text );
    Fuzz::require( line.text( ) == text );
    GString value = "untouched";
    Fuzz::require( line.get( name, value ) == line.contains( name ) );
    Fuzz::require( value == ( line.contains( name ) ? line.get( name ) : "untouched" ) );
    const std::vector<GString> tokens = cutTokens( text );
    checkOptions( line, tokens );
    checkNumbers( line, tokens );
    // What is added behind wins over all that stood before.
    Fuzz::require( GCommandLine( text + " -last value" ).get( "last" ) == "value" );
    Fuzz::require( GCommandLine( text + " -last" ).get( "last" ).empty( ) );
    return 0;
}
