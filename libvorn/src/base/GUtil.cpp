#include "base/GUtil.h"

#include "base/GBytes.h"
#include "base/GDebug.h"
#include "base/GPlainText.h"
#include "platform/GTime.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>

namespace
{
std::atomic<bool> keepAstral_ = false;

constexpr char16_t REPLACEMENT = u'X';

bool isContinuation( char unit )
{
    return ( unit & 0xC0 ) == 0x80;
}
// Continuations that a lead byte announces; -1 for a byte that can't lead.
int continuationsOf( unsigned char lead )
{
    if( lead < 0x80 ) return 0;
    if( lead < 0xC0 ) return -1;
    if( lead < 0xE0 ) return 1;
    if( lead < 0xF0 ) return 2;
    return lead < 0xF8 ? 3 : -1;
}
// The units written.
size_t writeCodePoint( uint32_t code, char16_t* out )
{
    out[0] = static_cast<char16_t>( code );
    if( code < 0x10000 ) return 1;
    if( code > 0x10FFFF || !keepAstral_.load( std::memory_order_relaxed ) )
    {
        out[0] = REPLACEMENT;
        return 1;
    }
    out[0] = static_cast<char16_t>( 0xD800 + ( ( code - 0x10000 ) >> 10 ) );
    out[1] = static_cast<char16_t>( 0xDC00 + ( code & 0x3FF ) );
    return 2;
}
// One sequence of more than one byte, or what stands in for a broken one. Advances `i`.
size_t decodeSequence( std::string_view text, size_t& i, char16_t* out )
{
    const auto lead = static_cast<unsigned char>( text[i++] );
    const int wanted = continuationsOf( lead );
    uint32_t code = wanted > 0 ? lead & ( 0x3F >> wanted ) : 0;
    int got = 0;
    for( ; got < wanted && i < text.size( ) && isContinuation( text[i] ); ++got )
        code = code << 6 | ( text[i++] & 0x3F );
    const bool isGood = got == wanted && ( wanted < 3 || code >= 0x10000 );
    return writeCodePoint( isGood ? code : static_cast<uint32_t>( REPLACEMENT ), out );
}
// A character beyond ASCII, with its second unit when it is a kept pair. Advances `i`.
void appendSequence( GWStringView text, size_t& i, bool keepAstral, GString& out )
{
    uint32_t code = text[i++];
    const bool isPair = keepAstral && ( code & 0xFC00 ) == 0xD800 && i < text.size( ) && ( text[i] & 0xFC00 ) == 0xDC00;
    if( isPair ) code = 0x10000 + ( ( code & 0x3FF ) << 10 ) + ( text[i++] & 0x3FF );
    const int continuations = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    out += static_cast<char>( ( 0xFF00 >> ( continuations + 1 ) & 0xFF ) | code >> 6 * continuations );
    for( int shift = continuations - 1; shift >= 0; --shift )
        out += static_cast<char>( 0x80 | ( code >> 6 * shift & 0x3F ) );
}
} // namespace

size_t GUTF8ToWide( std::string_view text, char16_t* out )
{
    size_t units = 0;
    for( size_t i = 0; i < text.size( ); )
    {
        const size_t plain =
            GPlainText::widen<GPlainText::Kind::Ascii>( text.data( ) + i, text.size( ) - i, out + units );
        i += plain;
        units += plain;
        while( i < text.size( ) && static_cast<unsigned char>( text[i] ) >= 0x80 )
            units += decodeSequence( text, i, out + units );
    }
    return units;
}
void GUTF8ToWide( std::string_view text, GWString& out )
{
    out.resize( text.size( ) );
    out.resize( GUTF8ToWide( text, out.data( ) ) );
}
GWString GUTF8ToWide( std::string_view text )
{
    GWString out;
    GUTF8ToWide( text, out );
    return out;
}

void GWideToUTF8( GWStringView text, GString& out )
{
    out.resize( text.size( ) );
    size_t i = GPlainText::narrow( text.data( ), text.size( ), out.data( ) );
    out.resize( i );
    const bool keepAstral = keepAstral_.load( std::memory_order_relaxed );
    while( i < text.size( ) )
        if( text[i] < 0x80 )
            out += static_cast<char>( text[i++] );
        else
            appendSequence( text, i, keepAstral, out );
}
GString GWideToUTF8( GWStringView text )
{
    GString out;
    GWideToUTF8( text, out );
    return out;
}
void GTextKeepAstral( bool keep )
{
    keepAstral_.store( keep, std::memory_order_relaxed );
}

namespace
{
template <typename Unit>
constexpr bool isOneOf( Unit unit, std::basic_string_view<Unit> set )
{
    return set.find( unit ) != std::basic_string_view<Unit>::npos;
}
template <typename Unit>
constexpr Unit lowerUnit( Unit unit )
{
    return unit >= 'A' && unit <= 'Z' ? static_cast<Unit>( unit + ( 'a' - 'A' ) ) : unit;
}
template <typename Unit>
constexpr bool isDigit( Unit unit )
{
    return unit >= '0' && unit <= '9';
}

// Case folding of the scripts whose capitals lie at a fixed distance; the C library's own depends on the locale.
char16_t foldUnit( char16_t unit )
{
    if( unit < 0x80 ) return lowerUnit( unit );
    if( GWITHIN( 0xC0, unit, 0xDE ) && unit != 0xD7 ) return static_cast<char16_t>( unit + 0x20 );
    if( GWITHIN( 0x100, unit, 0x12F ) || GWITHIN( 0x132, unit, 0x137 ) || GWITHIN( 0x14A, unit, 0x177 ) )
        return static_cast<char16_t>( unit | 1 );
    if( GWITHIN( 0x139, unit, 0x148 ) || GWITHIN( 0x179, unit, 0x17E ) )
        return static_cast<char16_t>( ( unit + 1 ) & ~1 );
    if( GWITHIN( 0x391, unit, 0x3A9 ) || GWITHIN( 0x410, unit, 0x42F ) ) return static_cast<char16_t>( unit + 0x20 );
    if( GWITHIN( 0x400, unit, 0x40F ) ) return static_cast<char16_t>( unit + 0x50 );
    return unit;
}

template <typename Unit>
int64_t calcUnits( std::basic_string_view<Unit> text )
{
    const bool negative = !text.empty( ) && text[0] == '-';
    int64_t value = 0;
    for( size_t i = negative ? 1 : 0; i < text.size( ) && isDigit( text[i] ); ++i )
    {
        const int digit = static_cast<int>( text[i] ) - '0';
        const bool over = negative ? value < ( INT64_MIN + digit ) / 10 : value > ( INT64_MAX - digit ) / 10;
        if( over ) return negative ? INT64_MIN : INT64_MAX;
        value = value * 10 + ( negative ? -digit : digit );
    }
    return value;
}
template <typename Unit>
std::basic_string<Unit> lowerUnits( std::basic_string_view<Unit> text )
{
    std::basic_string<Unit> out( text );
    for( Unit& unit : out ) unit = lowerUnit( unit );
    return out;
}
} // namespace

GWString GToLower( GWStringView text )
{
    return lowerUnits( text );
}
GString GToLower( std::string_view text )
{
    return lowerUnits( text );
}
bool GCaseEquals( GWStringView a, GWStringView b )
{
    return std::equal( a.begin( ), a.end( ), b.begin( ), b.end( ),
                       []( char16_t x, char16_t y ) { return foldUnit( x ) == foldUnit( y ); } );
}

namespace
{
GWStringView trimmed( GWStringView text )
{
    constexpr GWStringView BLANKS = u"\n\r\t ";
    const size_t begin = text.find_first_not_of( BLANKS );
    return begin == GWStringView::npos ? GWStringView( )
                                       : text.substr( begin, text.find_last_not_of( BLANKS ) + 1 - begin );
}
} // namespace

GWString GTrim( GWStringView text )
{
    return GWString( trimmed( text ) );
}
int64_t GCalc( GWStringView text )
{
    return calcUnits( text );
}
int64_t GCalc( std::string_view text )
{
    return calcUnits( text );
}
bool GTest( GWStringView text )
{
    return GCaseEquals( text, u"true" ) || GCalc( text ) > 0;
}
bool GTest( std::string_view text )
{
    constexpr std::string_view TRUE_TEXT = "true";
    const auto isSame = []( char x, char y ) { return lowerUnit( x ) == y; };
    return std::equal( text.begin( ), text.end( ), TRUE_TEXT.begin( ), TRUE_TEXT.end( ), isSame ) || GCalc( text ) > 0;
}

namespace
{
// The characters up to the first that needs an escape.
size_t countUnescaped( std::string_view text, std::string_view extra )
{
    using namespace GPlainText;
    size_t plain = 0;
    if( extra.empty( ) ) plain = count<Kind::Value>( text.data( ), text.size( ) );
    if( extra == ": " ) plain = count<Kind::Name>( text.data( ), text.size( ) );
    const auto isEscaped = [extra]( char unit )
    { return unit == '\t' || unit == '\n' || unit == '\r' || unit == '\\' || isOneOf( unit, extra ); };
    const auto found = std::find_if( text.begin( ) + static_cast<ptrdiff_t>( plain ), text.end( ), isEscaped );
    return static_cast<size_t>( found - text.begin( ) );
}
void appendEscape( char unit, GString& out )
{
    out += '\\';
    switch( unit )
    {
    case '\t': out += 't'; break;
    case '\n': out += 'n'; break;
    case '\r': out += 'r'; break;
    default: out += unit;
    }
}
char unescapedUnit( char unit )
{
    switch( unit )
    {
    case 't': return '\t';
    case 'n': return '\n';
    case 'r': return '\r';
    default: return unit;
    }
}
} // namespace

void GAppendEscaped( GString& out, std::string_view text, std::string_view extra )
{
    while( !text.empty( ) )
    {
        const size_t plain = countUnescaped( text, extra );
        out.append( text.data( ), plain );
        text.remove_prefix( plain );
        if( text.empty( ) ) return;
        appendEscape( text[0], out );
        text.remove_prefix( 1 );
    }
}
GString GEscape( std::string_view text, std::string_view extra )
{
    GString out;
    out.reserve( text.size( ) );
    GAppendEscaped( out, text, extra );
    return out;
}
void GUnescape( std::string_view text, GString& out )
{
    out.clear( );
    for( size_t i = 0; i < text.size( ); i += 2 )
    {
        const size_t slash = std::min( text.find( '\\', i ), text.size( ) );
        out.append( text.data( ) + i, slash - i );
        i = slash;
        if( i + 1 < text.size( ) ) out += unescapedUnit( text[i + 1] );
    }
}
GString GUnescape( std::string_view text )
{
    GString out;
    out.reserve( text.size( ) );
    GUnescape( text, out );
    return out;
}

GWString GSanitizeName( GWStringView text )
{
    GWString out;
    for( const char16_t unit : text )
    {
        const char16_t lower = lowerUnit( unit );
        if( GWITHIN( u'a', lower, u'z' ) || isDigit( lower ) || isOneOf( lower, GWStringView( u"-_@." ) ) )
            out += lower;
    }
    return out;
}

bool GSplitNext( GWStringView text, size_t& begin, GWStringView& item, GWStringView delimiters )
{
    while( begin <= text.size( ) )
    {
        const size_t end = std::min( text.find_first_of( delimiters, begin ), text.size( ) );
        item = trimmed( text.substr( begin, end - begin ) );
        begin = end + 1;
        if( !item.empty( ) ) return true;
    }
    return false;
}
GStringList GSplitList( GWStringView text, GWStringView delimiters )
{
    GStringList list;
    GWStringView item;
    for( size_t begin = 0; GSplitNext( text, begin, item, delimiters ); ) list.emplace_back( item );
    return list;
}
GWString GJoinList( const GStringList& list )
{
    GWString out;
    for( const GWString& item : list )
    {
        if( !out.empty( ) ) out += u", ";
        out += item;
    }
    return out;
}
bool GListContains( const GStringList& list, GWStringView item )
{
    return std::find( list.begin( ), list.end( ), item ) != list.end( );
}

bool GValidHost( GWStringView text )
{
    return !text.empty( ) && text != u"0.0.0.0:0";
}

GWString GFormatSize( int64_t bytes )
{
    constexpr int64_t KILO = 1024;
    if( bytes < KILO ) return GNumber( bytes ) + u"B";
    const auto value = static_cast<double>( bytes );
    if( bytes < KILO * KILO ) return GFormatDouble( value / KILO, 2 ) + u"KB";
    if( bytes < KILO * KILO * KILO ) return GFormatDouble( value / ( KILO * KILO ), 2 ) + u"MB";
    return GFormatDouble( value / ( KILO * KILO * KILO ), 2 ) + u"GB";
}
GWString GFormatDouble( double value, int decimals )
{
    char text[512];
    const int precision = std::clamp( decimals, 0, 60 );
    const std::to_chars_result result =
        std::to_chars( text, text + sizeof( text ), value, std::chars_format::fixed, precision );
    return GWString( text, result.ptr );
}
GWString GNumber( int64_t value )
{
    GWString out;
    GAppendNumber( out, value );
    return out;
}
GWString GTimeComposeTime( uint64_t time )
{
    const GTimeFields fields = GTimeSplitUTC( time );
    const int hour = fields.hour % 12 ? fields.hour % 12 : 12;
    return GConcat( hour, fields.minute < 10 ? u":0" : u":", fields.minute, fields.hour < 12 ? u"am" : u"pm" );
}

bool GValidUserID( GWStringView text )
{
    constexpr size_t MAX_LENGTH = 254;
    if( text.size( ) > MAX_LENGTH ) return false;
    const size_t at = text.find( u'@' );
    return at != GWStringView::npos && at > 0 && at + 1 < text.size( ) && text.rfind( u'@' ) == at &&
           GSanitizeName( text ) == text;
}
bool GValidDeviceID( GWStringView text )
{
    constexpr size_t MAX_LENGTH = 64;
    if( text.empty( ) || text.size( ) > MAX_LENGTH ) return false;
    return std::all_of( text.begin( ), text.end( ),
                        []( char16_t unit )
                        { return unit == u'-' || isDigit( unit ) || GWITHIN( u'a', lowerUnit( unit ), u'z' ); } );
}

void GSerialize( const void* value, int valueSize, GString& buffer )
{
    GPRECONDITION( value && valueSize >= 0 );
    buffer.append( static_cast<const char*>( value ), static_cast<size_t>( valueSize ) );
}
void GSerialize( uint64_t value, GString& buffer )
{
    char bytes[8];
    GWriteU64( bytes, value );
    buffer.append( bytes, sizeof( bytes ) );
}
void GSerialize( uint32_t value, GString& buffer )
{
    char bytes[4];
    GWriteU32( bytes, value );
    buffer.append( bytes, sizeof( bytes ) );
}
int GDeserialize( const char* buffer, int length, uint64_t& out )
{
    if( length < 8 ) return 0;
    out = GReadU64( buffer );
    return 8;
}
int GDeserialize( const char* buffer, int length, uint32_t& out )
{
    if( length < 4 ) return 0;
    out = GReadU32( buffer );
    return 4;
}
void GConsume( GString& buffer, int num )
{
    GPRECONDITION( num <= (int)buffer.size( ) );
    if( num > 0 ) buffer.erase( 0, static_cast<size_t>( num ) );
}

bool GLogIsSecret( GWStringView name )
{
    constexpr GWStringView SECRET = u"password";
    return name.size( ) >= SECRET.size( ) &&
           std::equal( SECRET.rbegin( ), SECRET.rend( ), name.rbegin( ),
                       []( char16_t wanted, char16_t unit ) { return lowerUnit( unit ) == wanted; } );
}
GWStringView GLogMask( GWStringView name, GWStringView value )
{
    return GLogIsSecret( name ) && !value.empty( ) ? GWStringView( u"********" ) : value;
}
