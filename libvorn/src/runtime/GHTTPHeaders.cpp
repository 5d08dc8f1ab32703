#include "runtime/GHTTPHeaders.h"

#include "base/GDebug.h"
#include "base/GLineGrammar.h"

#include <climits>

namespace
{
namespace spirit = boost::spirit::classic;

constexpr GWStringView CONTENT_LENGTH = u"Content-Length";
constexpr GWStringView PROTOCOL = u"HTTP/1.1";
constexpr std::string_view HEADER_END = "\r\n\r\n";

// firstLine CR LF *( line CR LF ) CR LF. The bytes taken, or 0.
int parseHeader( const char* buffer, int length, GLineGrammar::Matches& names, GLineGrammar::Matches& values )
{
    using namespace GLineGrammar;
    // Without the end of a header nothing can match: a growing stream buffer is refused at the cost of one search.
    const size_t end = std::string_view( buffer, static_cast<size_t>( length ) ).find( HEADER_END );
    if( end == std::string_view::npos ) return 0;
    const auto eol = spirit::ch_p( '\r' ) >> spirit::ch_p( '\n' );
    names.emplace_back( );
    const auto info = spirit::parse( buffer, buffer + length,
                                     value( )[Push{ &values }] >> eol >> *( line( names, values ) >> eol ) >> eol );
    return info.hit ? static_cast<int>( info.stop - buffer ) : 0;
}

// The end of the header and of all parts; 0 when a size is no size or the message is longer than any buffer.
int64_t measure( int64_t header, const GStringList& sizes )
{
    int64_t total = header;
    for( const GWString& size : sizes )
    {
        const int64_t part = GCalc( size );
        if( part < 0 || part > INT_MAX - total ) return 0;
        total += part;
    }
    return total;
}

GWString wideOf( std::string_view escaped )
{
    return GUTF8ToWide( GUnescape( escaped ) );
}

struct AssignUnits
{
    GWStringView* out;
    void operator( )( const char16_t* first, const char16_t* last ) const
    {
        *out = GWStringView( first, static_cast<size_t>( last - first ) );
    }
};
struct WideBlank : spirit::char_parser<WideBlank>
{
    using self_t = WideBlank;
    bool test( char16_t unit ) const { return unit == u' ' || unit == u'\t'; }
};
struct WideDigit : spirit::char_parser<WideDigit>
{
    using self_t = WideDigit;
    bool test( char16_t unit ) const { return GWITHIN( u'0', unit, u'9' ); }
};
} // namespace

GHTTPHeaders::GHTTPHeaders( GWStringView method )
{
    setMethod( method );
}

void GHTTPHeaders::setMethod( GWStringView method )
{
    set( u"", GConcat( method, u" / HTTP/1.1" ) );
}
void GHTTPHeaders::setResponse( int code, GWStringView text )
{
    set( u"", GConcat( u"HTTP/1.1 ", code, u" ", text ) );
}

GWString GHTTPHeaders::getMethod( ) const
{
    GWString uri;
    return getMethod( uri );
}
GWString GHTTPHeaders::getMethod( GWString& uri ) const
{
    const auto found = _headers.find( u"" );
    const GWStringView line = found == _headers.end( ) ? GWStringView( ) : GWStringView( found->second );
    const size_t first = std::min( line.find( u' ' ), line.size( ) );
    const size_t begin = std::min( line.find_first_not_of( u' ', first ), line.size( ) );
    uri = line.substr( begin, line.find( u' ', begin ) - begin );
    return GWString( line.substr( 0, first ) );
}
bool GHTTPHeaders::isMethod( GWStringView method ) const
{
    const auto found = _headers.find( u"" );
    if( found == _headers.end( ) ) return method.empty( );
    const GWStringView line = found->second;
    return line.substr( 0, line.find( u' ' ) ) == method;
}

int GHTTPHeaders::getResponse( ) const
{
    GWString text;
    return getResponse( text );
}
int GHTTPHeaders::getResponse( GWString& text ) const
{
    text.clear( );
    const auto found = _headers.find( u"" );
    if( found == _headers.end( ) || !found->second.starts_with( PROTOCOL ) ) return 0;
    const char16_t* const begin = found->second.data( ) + PROTOCOL.size( );
    const char16_t* const end = found->second.data( ) + found->second.size( );
    GWStringView code;
    GWStringView reason;
    const auto info = spirit::parse( begin, end,
                                     +WideBlank( ) >> ( +WideDigit( ) )[AssignUnits{ &code }] >> *WideBlank( ) >>
                                         ( *spirit::anychar_p )[AssignUnits{ &reason }] );
    const int64_t number = info.hit ? GCalc( code ) : 0;
    if( number <= 0 || number > INT_MAX ) return 0;
    text = reason;
    return static_cast<int>( number );
}

void GHTTPHeaders::set( GWStringView name, GWStringView value )
{
    const auto found = _headers.find( name );
    if( found == _headers.end( ) )
        _headers.emplace( name, value );
    else
        found->second = value;
    _debugUpdate( );
}
void GHTTPHeaders::set( GWStringView name, const GStringList& list )
{
    set( name, GJoinList( list ) );
}
void GHTTPHeaders::set( GWStringView name, int64_t value )
{
    set( name, GNumber( value ) );
}
GWString GHTTPHeaders::get( GWStringView name ) const
{
    const auto found = _headers.find( name );
    return found == _headers.end( ) ? GWString( ) : found->second;
}
bool GHTTPHeaders::get( GWStringView name, GStringList& list ) const
{
    list = GSplitList( get( name ) );
    return !list.empty( );
}
bool GHTTPHeaders::contains( GWStringView name ) const
{
    return _headers.contains( name );
}
void GHTTPHeaders::erase( GWStringView name )
{
    const auto found = _headers.find( name );
    if( found == _headers.end( ) ) return;
    _headers.erase( found );
    _debugUpdate( );
}
void GHTTPHeaders::insert( GWStringView name, GWStringView item )
{
    GPRECONDITION( !name.empty( ) );
    GStringList list;
    get( name, list );
    if( GListContains( list, item ) ) return;
    list.emplace_back( item );
    set( name, list );
}
void GHTTPHeaders::remove( GWStringView name, GWStringView item )
{
    GStringList list;
    get( name, list );
    if( list.remove( GWString( item ) ) ) set( name, list );
}
bool GHTTPHeaders::test( GWStringView name ) const
{
    return GTest( get( name ) );
}
int64_t GHTTPHeaders::calc( GWStringView name ) const
{
    return GCalc( get( name ) );
}

void GHTTPHeaders::addContent( const char* data, int length )
{
    GPRECONDITION( length >= 0 );
    GStringList sizes;
    get( CONTENT_LENGTH, sizes );
    sizes.push_back( GNumber( length ) );
    _contentArray.emplace_back( data ? data : "", static_cast<size_t>( data ? length : 0 ) );
    set( CONTENT_LENGTH, sizes );
}
void GHTTPHeaders::addContent( const GString& data )
{
    addContent( data.data( ), static_cast<int>( data.size( ) ) );
}
const GString& GHTTPHeaders::getContent( int index ) const
{
    GASSERT( GWITHIN( 0, index, (int)_contentArray.size( )-1 ) );
    return _contentArray[static_cast<size_t>( index )];
}

void GHTTPHeaders::serialize( GString& out ) const
{
    out.clear( );
    for( const auto& [name, value] : _headers )
    {
        if( !name.empty( ) ) out += GEscape( GWideToUTF8( name ), ": " ) + ": ";
        out += GEscape( GWideToUTF8( value ), "" ) + "\r\n";
    }
    out += "\r\n";
    for( const GString& part : _contentArray ) out += part;
}
GString GHTTPHeaders::serialize( ) const
{
    GString out;
    serialize( out );
    return out;
}

int GHTTPHeaders::deserialize( const char* buffer, int length )
{
    GPRECONDITION( buffer && length >= 0 );
    clear( );
    GLineGrammar::Matches names;
    GLineGrammar::Matches values;
    const int header = parseHeader( buffer, length, names, values );
    if( !header ) return 0;
    const size_t pairs = GLineGrammar::countPairs( names, values );
    for( size_t i = 0; i < pairs; ++i ) _headers[wideOf( names[i] )] = wideOf( values[i] );
    GStringList sizes;
    get( CONTENT_LENGTH, sizes );
    const int64_t total = measure( header, sizes );
    if( !total || total > length )
    {
        clear( );
        return 0;
    }
    _contentArray.reserve( sizes.size( ) );
    const char* part = buffer + header;
    for( const GWString& size : sizes )
    {
        const auto bytes = static_cast<size_t>( GCalc( size ) );
        _contentArray.emplace_back( part, bytes );
        part += bytes;
    }
    _debugUpdate( );
    return static_cast<int>( total );
}
int GHTTPHeaders::deserialize( const GString& text )
{
    GPRECONDITION( text.size( ) <= INT_MAX );
    return deserialize( text.data( ), static_cast<int>( text.size( ) ) );
}

void GHTTPHeaders::clear( )
{
    _headers.clear( );
    _contentArray.clear( );
    _debugUpdate( );
}
GWString GHTTPHeaders::getDebugText( ) const
{
    return GUTF8ToWide( _debugText );
}
void GHTTPHeaders::_debugUpdate( )
{
    _debugText.clear( );
    for( const auto& [name, value] : _headers )
    {
        if( !name.empty( ) ) _debugText += GEscape( GWideToUTF8( name ), ": " ) + ": ";
        _debugText += GEscape( GWideToUTF8( GLogMask( name, value ) ), "" ) + "\r\n";
    }
}
