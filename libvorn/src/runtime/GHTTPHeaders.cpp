#include "runtime/GHTTPHeaders.h"

#include "base/GDebug.h"
#include "base/GPlainText.h"
#include "runtime/GHeaderScanner.h"

#include <boost/spirit/include/classic_core.hpp>

#include <algorithm>
#include <climits>

namespace
{
namespace spirit = boost::spirit::classic;

constexpr GWStringView CONTENT_LENGTH = u"Content-Length";
constexpr GWStringView PROTOCOL = u"HTTP/1.1";
constexpr std::string_view EOL = "\r\n";
constexpr std::string_view HEADER_END = "\r\n\r\n";
// Room that is kept for the parts of the next message.
constexpr size_t MAX_KEPT_PART = 65536;
constexpr size_t MAX_KEPT_PARTS = 8;

// The end of the header and of all parts; 0 when a size is no size or the message is longer than any buffer.
int64_t addSizes( int64_t header, GWStringView sizes )
{
    int64_t total = header;
    GWStringView size;
    for( size_t begin = 0; GSplitNext( sizes, begin, size ); )
    {
        const int64_t part = GCalc( size );
        if( part < 0 || part > INT_MAX - total ) return 0;
        total += part;
    }
    return total;
}

// Nearly all text is plain and is narrowed where it belongs.
template <GPlainText::Kind kind>
void appendEscaped( GString& out, GWStringView text )
{
    const size_t begin = out.size( );
    out.resize( begin + text.size( ) );
    const size_t narrowed = GPlainText::narrow( text.data( ), text.size( ), out.data( ) + begin );
    if( GPlainText::count<kind>( out.data( ) + begin, narrowed ) == text.size( ) ) return;
    out.resize( begin );
    static thread_local GString bytes; // Keeps its room.
    GWideToUTF8( text, bytes );
    GAppendEscaped( out, bytes, kind == GPlainText::Kind::Name ? ": " : "" );
}

bool holdsSecret( const GHeaderTable& headers )
{
    for( const auto& [name, value] : headers )
        if( GLogIsSecret( name ) ) return true;
    return false;
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
    const GWStringView line = _headers.get( u"" );
    return GWString( line.substr( 0, line.find( u' ' ) ) );
}
GWString GHTTPHeaders::getMethod( GWString& uri ) const
{
    const GWStringView line = _headers.get( u"" );
    const size_t first = std::min( line.find( u' ' ), line.size( ) );
    const size_t begin = std::min( line.find_first_not_of( u' ', first ), line.size( ) );
    uri = line.substr( begin, line.find( u' ', begin ) - begin );
    return GWString( line.substr( 0, first ) );
}
bool GHTTPHeaders::isMethod( GWStringView method ) const
{
    const GWStringView line = _headers.get( u"" );
    return line.substr( 0, line.find( u' ' ) ) == method;
}

int GHTTPHeaders::getResponse( ) const
{
    GWStringView text;
    return _getResponse( text );
}
int GHTTPHeaders::getResponse( GWString& text ) const
{
    GWStringView reason;
    const int code = _getResponse( reason );
    text = reason;
    return code;
}
int GHTTPHeaders::_getResponse( GWStringView& text ) const
{
    const GWStringView line = _headers.get( u"" );
    if( !line.starts_with( PROTOCOL ) ) return 0;
    GWStringView code;
    GWStringView reason;
    const auto info = spirit::parse( line.data( ) + PROTOCOL.size( ), line.data( ) + line.size( ),
                                     +WideBlank( ) >> ( +WideDigit( ) )[AssignUnits{ &code }] >> *WideBlank( ) >>
                                         ( *spirit::anychar_p )[AssignUnits{ &reason }] );
    const int64_t number = info.hit ? GCalc( code ) : 0;
    if( number <= 0 || number > INT_MAX ) return 0;
    text = reason;
    return static_cast<int>( number );
}

void GHTTPHeaders::set( GWStringView name, GWStringView value )
{
    _headers.set( name, value );
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
    return GWString( _headers.get( name ) );
}
bool GHTTPHeaders::get( GWStringView name, GStringList& list ) const
{
    list = GSplitList( _headers.get( name ) );
    return !list.empty( );
}
bool GHTTPHeaders::contains( GWStringView name ) const
{
    return _headers.contains( name );
}
void GHTTPHeaders::erase( GWStringView name )
{
    if( _headers.erase( name ) ) _debugUpdate( );
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
    return GTest( _headers.get( name ) );
}
int64_t GHTTPHeaders::calc( GWStringView name ) const
{
    return GCalc( _headers.get( name ) );
}

void GHTTPHeaders::addContent( const char* data, int length )
{
    GPRECONDITION( length >= 0 );
    GStringList sizes;
    get( CONTENT_LENGTH, sizes );
    sizes.push_back( GNumber( length ) );
    _addPart( data ? data : "", static_cast<size_t>( data ? length : 0 ) );
    set( CONTENT_LENGTH, sizes );
}
void GHTTPHeaders::addContent( const GString& data )
{
    addContent( data.data( ), static_cast<int>( data.size( ) ) );
}
void GHTTPHeaders::_addPart( const char* data, size_t length )
{
    std::vector<GString>& spare = _spare.parts;
    if( spare.empty( ) )
    {
        _contentArray.emplace_back( data, length );
        return;
    }
    _contentArray.push_back( std::move( spare.back( ) ) );
    spare.pop_back( );
    _contentArray.back( ).assign( data, length );
}
const GString& GHTTPHeaders::getContent( int index ) const
{
    GASSERT( GWITHIN( 0, index, (int)_contentArray.size( )-1 ) );
    return _contentArray[static_cast<size_t>( index )];
}

// The header lines, as they are written or as they may be logged.
void GHTTPHeaders::_appendLines( GString& out, bool masked ) const
{
    for( const auto& [name, value] : _headers )
    {
        if( !name.empty( ) )
        {
            appendEscaped<GPlainText::Kind::Name>( out, name );
            out += ": ";
        }
        appendEscaped<GPlainText::Kind::Value>( out, masked ? GLogMask( name, value ) : value );
        out += EOL;
    }
}

void GHTTPHeaders::serialize( GString& out ) const
{
    out.clear( );
    _appendLines( out, false );
    out += EOL;
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
    GHeaderScanner scanner( buffer, static_cast<size_t>( length ), _headers );
    const size_t header = scanner.scan( );
    const GWStringView sizes = header ? _headers.get( CONTENT_LENGTH ) : GWStringView( );
    const int64_t total = header ? addSizes( static_cast<int64_t>( header ), sizes ) : 0;
    if( !total || total > length )
    {
        clear( );
        return 0;
    }
    const char* part = buffer + header;
    GWStringView size;
    for( size_t begin = 0; GSplitNext( sizes, begin, size ); )
    {
        const auto bytes = static_cast<size_t>( GCalc( size ) );
        _addPart( part, bytes );
        part += bytes;
    }
    if( scanner.isCanonical( ) && !holdsSecret( _headers ) )
        _debugText.assign( buffer, header - EOL.size( ) );
    else
        _debugUpdate( );
    return static_cast<int>( total );
}
int GHTTPHeaders::deserialize( const GString& text )
{
    GPRECONDITION( text.size( ) <= INT_MAX );
    return deserialize( text.data( ), static_cast<int>( text.size( ) ) );
}

int64_t GHTTPHeaders::measure( const char* buffer, int length )
{
    GPRECONDITION( buffer && length >= 0 );
    const std::string_view bytes( buffer, static_cast<size_t>( length ) );
    if( bytes.find( HEADER_END ) == std::string_view::npos ) return 0;
    GHeaderTable table;
    const size_t header = GHeaderScanner( buffer, bytes.size( ), table ).scan( );
    const int64_t total = header ? addSizes( static_cast<int64_t>( header ), table.get( CONTENT_LENGTH ) ) : 0;
    return total ? total : -1;
}

void GHTTPHeaders::clear( )
{
    _headers.clear( );
    for( GString& part : _contentArray )
        if( part.capacity( ) <= MAX_KEPT_PART && _spare.parts.size( ) < MAX_KEPT_PARTS )
            _spare.parts.push_back( std::move( part ) );
    _contentArray.clear( );
    _debugText.clear( );
}
GWString GHTTPHeaders::getDebugText( ) const
{
    return GUTF8ToWide( _debugText );
}
void GHTTPHeaders::_debugUpdate( )
{
    _debugText.clear( );
    _appendLines( _debugText, true );
}
