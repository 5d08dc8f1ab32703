// The parser of messages does what the rules of the line grammar say: random bytes go through both.
#include "libvorn/src/base/GLineGrammar.h"
#include "runtime/GHTTPHeaders.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <random>

namespace
{
using Headers = std::map<GWString, GWString>;

// The message as the grammar describes it: firstLine CR LF *( line CR LF ) CR LF. The bytes of the head, or 0.
int referenceHead( const GString& text, Headers& headers )
{
    using namespace GLineGrammar;
    Matches names( 1 );
    Matches values;
    const auto eol = spirit::ch_p( '\r' ) >> spirit::ch_p( '\n' );
    const char* const begin = text.data( );
    const auto info = spirit::parse( begin, begin + text.size( ),
                                     value( )[Push{ &values }] >> eol >> *( line( names, values ) >> eol ) >> eol );
    if( !info.hit ) return 0;
    EXPECT_EQ( names.size( ), values.size( ) );
    for( size_t i = 0; i < names.size( ); ++i )
        headers[GUTF8ToWide( GUnescape( names[i] ) )] = GUTF8ToWide( GUnescape( values[i] ) );
    return static_cast<int>( info.stop - begin );
}
int reference( const GString& text, Headers& headers )
{
    const int head = referenceHead( text, headers );
    const auto sizes = headers.find( u"Content-Length" );
    int64_t total = head;
    for( const GWString& size : GSplitList( sizes == headers.end( ) ? u"" : sizes->second ) )
    {
        const int64_t part = GCalc( size );
        total = part < 0 || part > INT_MAX ? INT64_MAX / 2 : total + part;
    }
    if( head && total <= static_cast<int64_t>( text.size( ) ) ) return static_cast<int>( total );
    headers.clear( );
    return 0;
}

class Random
{
public:
    size_t below( size_t limit ) { return _engine( ) % limit; }
    template <size_t N>
    GString pick( const std::string_view ( &choices )[N] )
    {
        return GString( choices[below( N )] );
    }

private:
    std::mt19937 _engine{ 20 };
};

// Everything that a rule names, and what lies just beside it.
constexpr std::string_view NOISE[] = { "\r\n",
                                       "\r",
                                       "\n",
                                       "\\",
                                       "\\\\",
                                       "\\n",
                                       "\\:",
                                       "\\ ",
                                       ":",
                                       ": ",
                                       ":  \t",
                                       " ",
                                       "\t",
                                       "a",
                                       "B",
                                       "Name",
                                       "a long value",
                                       "\xC3\xA4",
                                       "\xC3",
                                       "\xE2\x82\xAC",
                                       "\xF0\x9F\x98\x80",
                                       "\x80",
                                       "\x7F\x01",
                                       "\r\n\r\n",
                                       "Password: x",
                                       std::string_view( "\0", 1 ) };
constexpr std::string_view LINES[] = { "b: 1\r\n",
                                       "a: 2\r\n",
                                       "  c:3\r\n",
                                       "b: again\r\n",
                                       "Content-Length: 2\r\n",
                                       "d:   \r\n",
                                       "x\\: y: z\r\n",
                                       "\xC3\xA4: \xE2\x82\xAC\r\n",
                                       "e: \\r\\n\\t\\\\\r\n",
                                       "new_password: p\r\n",
                                       "f: 0123456789abcdef0123456789abcdef\r\n",
                                       "0123456789abcdefg: tab\there\r\n",
                                       "Content-Length: 1, 1\r\n",
                                       "content-length: 9\r\n",
                                       "g: \\\r\n\r\n" };

GString noise( Random& random )
{
    GString text;
    for( size_t i = random.below( 12 ); i > 0; --i ) text += random.pick( NOISE );
    return text;
}
GString message( Random& random )
{
    GString text = "GET / HTTP/1.1\r\n";
    for( size_t i = random.below( 9 ); i > 0; --i ) text += random.pick( LINES );
    text += "\r\nab";
    const size_t at = random.below( text.size( ) );
    switch( random.below( 4 ) )
    {
    case 0: text.insert( at, random.pick( NOISE ) ); break;
    case 1: text.erase( at, 1 + random.below( 3 ) ); break;
    case 2: text.resize( at ); break;
    default: break;
    }
    return text;
}

// What a message of these headers shows, built one by one.
GWString debugTextOf( const Headers& headers )
{
    GHTTPHeaders message;
    for( const auto& [name, value] : headers ) message.set( name, value );
    return message.getDebugText( );
}
void compare( GHTTPHeaders& reused, const GString& text )
{
    SCOPED_TRACE( GEscape( text, "" ) );
    Headers expected;
    const int taken = reference( text, expected );
    ASSERT_EQ( reused.deserialize( text ), taken );
    Headers found;
    for( const auto& [name, value] : reused.headers( ) ) found.emplace( name, value );
    ASSERT_EQ( found.size( ), reused.headers( ).size( ) );
    ASSERT_EQ( found, expected );
    ASSERT_EQ( reused.getDebugText( ), debugTextOf( expected ) );
    GHTTPHeaders fresh;
    ASSERT_EQ( fresh.deserialize( text ), taken );
    ASSERT_EQ( fresh.serialize( ), reused.serialize( ) );
}
} // namespace

TEST( GHeaderScanner, ReadsNoiseAsTheGrammarDoes )
{
    Random random;
    GHTTPHeaders reused;
    for( int i = 0; i < 40000 && !testing::Test::HasFatalFailure( ); ++i ) compare( reused, noise( random ) );
}
TEST( GHeaderScanner, ReadsMessagesAsTheGrammarDoes )
{
    Random random;
    GHTTPHeaders reused;
    int whole = 0;
    for( int i = 0; i < 40000 && !testing::Test::HasFatalFailure( ); ++i )
    {
        compare( reused, message( random ) );
        whole += !reused.headers( ).empty( );
    }
    EXPECT_GT( whole, 10000 );
}
TEST( GHeaderScanner, LongPiecesAndManyLinesPass )
{
    const GString longValue( 100000, 'v' );
    GString text = "A / HTTP/1.1\r\n";
    for( int i = 0; i < 3000; ++i ) text += "n" + std::to_string( i * 7 % 3000 ) + ": " + std::to_string( i ) + "\r\n";
    text += "long: " + longValue + "\r\n\r\n";
    GHTTPHeaders reused;
    compare( reused, text );
    EXPECT_EQ( reused.headers( ).size( ), 3002u );
    EXPECT_EQ( GWideToUTF8( reused.get( u"long" ) ), longValue );
}
