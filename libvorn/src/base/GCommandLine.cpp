#include "base/GCommandLine.h"

#include "base/GDebug.h"
#include "base/GUtil.h"

GCommandLine::GCommandLine( const GString& text ) : _text( text )
{
    GString name;
    int counter = 0;
    for( size_t begin = 0; begin <= text.size( ); )
    {
        const size_t end = std::min( text.find( ' ', begin ), text.size( ) );
        const GString token = text.substr( begin, end - begin );
        begin = end + 1;
        if( token.empty( ) ) continue;
        if( token[0] == '-' )
        {
            name = GToLower( token.substr( 1 ) );
            _options[name].clear( );
            continue;
        }
        if( name.empty( ) ) name = std::to_string( counter++ );
        _options[name] = token;
        name.clear( );
    }
}

bool GCommandLine::contains( const GString& name ) const
{
    return _options.contains( GToLower( name ) );
}
bool GCommandLine::get( const GString& name, GString& out ) const
{
    const auto found = _options.find( GToLower( name ) );
    if( found == _options.end( ) ) return false;
    out = found->second;
    return true;
}
GString GCommandLine::get( const GString& name ) const
{
    GString value;
    get( name, value );
    return value;
}
GString GCommandLine::getLogText( ) const
{
    GString out;
    bool isSecret = false;
    for( size_t begin = 0; begin <= _text.size( ); )
    {
        const size_t end = std::min( _text.find( ' ', begin ), _text.size( ) );
        const GString token = _text.substr( begin, end - begin );
        const bool isOption = token.starts_with( '-' );
        if( begin ) out += ' ';
        out += isSecret && !isOption && !token.empty( ) ? GString( "********" ) : token;
        if( !token.empty( ) ) isSecret = isOption && GLogIsSecret( GUTF8ToWide( token ) );
        begin = end + 1;
    }
    return out;
}
