#include "runtime/GHTTPHeaders.h"

#include "support/TestLog.h"

#include <gtest/gtest.h>

TEST( GHTTPHeaders, OnlyAFirstLineIsThatLineAndTwoLineEnds )
{
    EXPECT_EQ( GHTTPHeaders( u"LOGON" ).serialize( ), "LOGON / HTTP/1.1\r\n\r\n" );
    EXPECT_EQ( GHTTPHeaders( ).serialize( ), "\r\n" );
}
TEST( GHTTPHeaders, WritesNamesInOrderWithEscapes )
{
    GHTTPHeaders message;
    message.setResponse( 404, u"Not Found" );
    message.set( u"b: c", u"x\ty" );
    message.set( u"A", u"1: 2" );
    message.set( u"a", u"" );
    EXPECT_EQ( message.serialize( ), "HTTP/1.1 404 Not Found\r\nA: 1: 2\r\na: \r\nb\\:\\ c: x\\ty\r\n\r\n" );
}
TEST( GHTTPHeaders, ControlsSurviveARoundTrip )
{
    GHTTPHeaders message( u"CHAT" );
    message.set( u"a:b c", u"one\r\ntwo\t\\three\u20AC" );
    message.addContent( "0123456789", 10 );
    message.addContent( GString( "\r\n\r\n" ) );
    EXPECT_EQ( message.get( u"Content-Length" ), u"10, 4" );
    const GString text = message.serialize( );
    GHTTPHeaders back;
    EXPECT_EQ( back.deserialize( text ), static_cast<int>( text.size( ) ) );
    EXPECT_EQ( back.getMethod( ), u"CHAT" );
    EXPECT_EQ( back.get( u"a:b c" ), u"one\r\ntwo\t\\three\u20AC" );
    ASSERT_EQ( back.getContentCount( ), 2 );
    EXPECT_EQ( back.getContent( 0 ), "0123456789" );
    EXPECT_EQ( back.getContent( 1 ), "\r\n\r\n" );
    EXPECT_EQ( back.serialize( ), text );
}
TEST( GHTTPHeaders, BufferCutAnywhereAnswersZero )
{
    GHTTPHeaders message( u"INVITE" );
    message.set( u"CSeq", u"1 (GSIPService)" );
    message.set( u"Path", u"a\\b" );
    message.addContent( "abc", 3 );
    const GString text = message.serialize( );
    GHTTPHeaders back;
    for( size_t length = 0; length < text.size( ); ++length )
    {
        EXPECT_EQ( back.deserialize( text.substr( 0, length ) ), 0 ) << length;
        EXPECT_TRUE( back.headers( ).empty( ) );
        EXPECT_FALSE( back.hasContent( ) );
    }
    EXPECT_EQ( back.deserialize( text ), static_cast<int>( text.size( ) ) );
}
TEST( GHTTPHeaders, FirstOfTwoMessagesIsTakenAlone )
{
    GHTTPHeaders first( u"A" );
    first.addContent( "xy", 2 );
    const GString text = first.serialize( );
    GHTTPHeaders back;
    EXPECT_EQ( back.deserialize( text + GHTTPHeaders( u"B" ).serialize( ) ), static_cast<int>( text.size( ) ) );
    EXPECT_EQ( back.getMethod( ), u"A" );
}
TEST( GHTTPHeaders, RequestIsNoResponse )
{
    GHTTPHeaders message( u"REGISTER" );
    GWString text = u"before";
    GWString uri;
    EXPECT_EQ( message.getResponse( ), 0 );
    EXPECT_EQ( message.getResponse( text ), 0 );
    EXPECT_EQ( text, u"" );
    EXPECT_EQ( message.getMethod( uri ), u"REGISTER" );
    EXPECT_EQ( uri, u"/" );
    EXPECT_TRUE( message.isMethod( u"REGISTER" ) );
    EXPECT_FALSE( message.isMethod( u"REGISTE" ) );
}
TEST( GHTTPHeaders, MethodOfAResponseIsItsProtocol )
{
    GHTTPHeaders message;
    message.setResponse( 200, u"OK then" );
    GWString text;
    EXPECT_EQ( message.getResponse( text ), 200 );
    EXPECT_EQ( text, u"OK then" );
    EXPECT_EQ( message.getMethod( ), u"HTTP/1.1" );
}
TEST( GHTTPHeaders, ResponseLineTakesBlanksAndNeedsNoReason )
{
    GHTTPHeaders message;
    GWString text;
    message.set( u"", u"HTTP/1.1 \t 200" );
    EXPECT_EQ( message.getResponse( text ), 200 );
    EXPECT_EQ( text, u"" );
    message.set( u"", u"HTTP/1.1 480 \t Gone" );
    EXPECT_EQ( message.getResponse( text ), 480 );
    EXPECT_EQ( text, u"Gone" );
    for( const char16_t* line :
         { u"HTTP/1.0 200 OK", u"HTTP/1.1200", u"HTTP/1.1 OK", u"HTTP/1.1", u"", u"HTTP/1.1 99999999999 OK" } )
    {
        message.set( u"", line );
        EXPECT_EQ( message.getResponse( ), 0 ) << GWideToUTF8( line );
    }
}
TEST( GHTTPHeaders, EmptyMessageHasNoMethod )
{
    GHTTPHeaders message;
    GWString uri = u"before";
    EXPECT_EQ( message.getMethod( uri ), u"" );
    EXPECT_EQ( uri, u"" );
    EXPECT_FALSE( message.contains( u"" ) );
}
TEST( GHTTPHeaders, ContentLengthZeroGivesOneEmptyPart )
{
    GHTTPHeaders message;
    const GString text = "A / HTTP/1.1\r\nContent-Length: 0\r\n\r\n";
    EXPECT_EQ( message.deserialize( text ), static_cast<int>( text.size( ) ) );
    ASSERT_TRUE( message.hasContent( ) );
    EXPECT_EQ( message.getContent( 0 ), "" );
}
TEST( GHTTPHeaders, NoContentLengthMeansNoContent )
{
    GHTTPHeaders message;
    const GString text = "A / HTTP/1.1\r\n\r\n";
    EXPECT_EQ( message.deserialize( text + "trailing" ), static_cast<int>( text.size( ) ) );
    EXPECT_FALSE( message.hasContent( ) );
}
TEST( GHTTPHeaders, HostileContentSizesAreMalformed )
{
    GHTTPHeaders message;
    for( const char* size : { "-1", "4, -2", "2147483647", "9223372036854775807", "99999999999999999999",
                              "9223372036854775807, 9223372036854775807", "2147483647, 2147483647" } )
    {
        EXPECT_EQ( message.deserialize( GString( "A / HTTP/1.1\r\nContent-Length: " ) + size + "\r\n\r\nabcdefgh" ), 0 )
            << size;
        EXPECT_TRUE( message.headers( ).empty( ) );
    }
}
TEST( GHTTPHeaders, LineEndsAreExactlyCRLF )
{
    GHTTPHeaders message;
    EXPECT_EQ( message.deserialize( GString( "A / HTTP/1.1\n\n" ) ), 0 );
    EXPECT_EQ( message.deserialize( GString( "A / HTTP/1.1\r\nb: c\n\r\n\r\n" ) ), 0 );
    EXPECT_EQ( message.deserialize( GString( "A / HTTP/1.1\r\nno colon\r\n\r\n" ) ), 0 );
    EXPECT_EQ( message.deserialize( GString( "A / HTTP/1.1\r\n: no name\r\n\r\n" ) ), 0 );
}
TEST( GHTTPHeaders, LaterEqualNamesOverwrite )
{
    GHTTPHeaders message;
    EXPECT_GT( message.deserialize( GString( "A\r\n \tb: 1\r\nb:\t 2 \r\nB: 3\r\n\r\n" ) ), 0 );
    EXPECT_EQ( message.get( u"b" ), u"2 " );
    EXPECT_EQ( message.get( u"B" ), u"3" );
}
TEST( GHTTPHeaders, NulBytesAndHighBytesPass )
{
    GHTTPHeaders message;
    const GString text = GString( "A\r\nb: x", 7 ) + '\0' + "\xFF\r\n\r\n";
    EXPECT_EQ( message.deserialize( text ), static_cast<int>( text.size( ) ) );
    EXPECT_EQ( message.get( u"b" ), GWString( u"x\0X", 3 ) );
}
TEST( GHTTPHeaders, ListsKeepTheirItems )
{
    GHTTPHeaders message( u"A" );
    GStringList list;
    EXPECT_FALSE( message.get( u"List", list ) );
    message.insert( u"List", u"a" );
    message.insert( u"List", u"b" );
    message.insert( u"List", u"a" );
    EXPECT_EQ( message.get( u"List" ), u"a, b" );
    message.set( u"List", GStringList{ u"a", u"b", u"a" } );
    message.remove( u"List", u"a" );
    EXPECT_TRUE( message.get( u"List", list ) );
    EXPECT_EQ( list, GStringList{ u"b" } );
}
TEST( GHTTPHeaders, EqualContentSizesAreEachListed )
{
    GHTTPHeaders message( u"A" );
    message.addContent( "ab", 2 );
    message.addContent( "cd", 2 );
    EXPECT_EQ( message.get( u"Content-Length" ), u"2, 2" );
    EXPECT_EQ( message.serialize( ), "A / HTTP/1.1\r\nContent-Length: 2, 2\r\n\r\nabcd" );
}
TEST( GHTTPHeaders, TestsAndCalculates )
{
    GHTTPHeaders message( u"A" );
    message.set( u"flag", u"True" );
    message.set( u"number", int64_t( -12 ) );
    EXPECT_TRUE( message.test( u"flag" ) );
    EXPECT_FALSE( message.test( u"number" ) );
    EXPECT_FALSE( message.test( u"none" ) );
    EXPECT_EQ( message.calc( u"number" ), -12 );
    message.erase( u"number" );
    EXPECT_FALSE( message.contains( u"number" ) );
}
TEST( GHTTPHeaders, DebugTextMasksPasswords )
{
    GHTTPHeaders message( u"AUTHENTICATE" );
    message.set( u"New-Password", u"secret" );
    message.set( u"User", u"ann" );
    EXPECT_EQ( message.getDebugText( ), u"AUTHENTICATE / HTTP/1.1\r\nNew-Password: ********\r\nUser: ann\r\n" );
    message.clear( );
    EXPECT_EQ( message.getDebugText( ), u"" );
}
TEST( GHTTPHeadersDeathTest, ContentOutOfRangeAborts )
{
    const GHTTPHeaders message( u"A" );
    EXPECT_DEATH( static_cast<void>( message.getContent( 0 ) ),
                  "GWITHIN\\( 0, index, \\(int\\)_contentArray.size\\( \\)-1 \\)" );
}
TEST( GHTTPHeadersDeathTest, BrokenArgumentsAbort )
{
    GHTTPHeaders message( u"A" );
    EXPECT_DEATH( message.insert( u"", u"x" ), "!name.empty\\( \\)" );
    EXPECT_DEATH( message.deserialize( nullptr, 0 ), "buffer && length >= 0" );
    EXPECT_DEATH( message.deserialize( "", -1 ), "buffer && length >= 0" );
}

TEST( GHTTPHeaders, MeasureTellsWhatIsMissingFromWhatNeverComes )
{
    const GString whole = "A / HTTP/1.1\r\nContent-Length: 3, 2\r\n\r\nabcde";
    const size_t header = whole.size( ) - 5;
    for( size_t length = 0; length <= whole.size( ); ++length )
        EXPECT_EQ( GHTTPHeaders::measure( whole.data( ), static_cast<int>( length ) ),
                   length < header ? 0 : static_cast<int64_t>( whole.size( ) ) )
            << length;
    for( const GString& text :
         { GString( "A\r\nno colon\r\n\r\n" ), GString( "A\r\nContent-Length: -1\r\n\r\n" ),
           GString( "A\r\nContent-Length: 2147483647, 1\r\n\r\n" ), GString( "A\nB: c\r\n\r\n" ) } )
        EXPECT_EQ( GHTTPHeaders::measure( text.data( ), static_cast<int>( text.size( ) ) ), -1 ) << text;
}
