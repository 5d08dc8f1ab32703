#include "libvorn/src/platform/upnp/GUPnPHttp.h"

#include "libvorn/src/platform/upnp/GUPnPGateway.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

namespace
{
constexpr char OK[] = "HTTP/1.1 200 OK\r\n";

GUPnPProgress read( const GString& text, bool ended, GString& body )
{
    GUPnPAnswer answer;
    const GUPnPProgress progress = GUPnPReadAnswer( text, ended, answer );
    body = answer.body;
    return progress;
}
GUPnPProgress read( const GString& text, bool ended = false )
{
    GString body;
    return read( text, ended, body );
}
bool splits( std::string_view url )
{
    GUPnPAddress address;
    return GUPnPSplitURL( url, address );
}
} // namespace

TEST( GUPnPHttp, AnAnswerEndsByItsLengthItsLastChunkOrItsConnection )
{
    GString body;
    const GString head = OK;
    EXPECT_EQ( read( head + "Content-length:  5 \r\n\r\nhello", false, body ), GUPnPProgress::WHOLE );
    EXPECT_EQ( body, "hello" );
    EXPECT_EQ( read( head + "Content-Length: 5\r\n\r\nhello, and more", false, body ), GUPnPProgress::WHOLE );
    EXPECT_EQ( body, "hello" );
    const GString chunks = head + "Transfer-Encoding: chunked\r\n\r\n5;x\r\nhello\r\nD\r\n, gateway of \r\n0\r\n\r\n";
    EXPECT_EQ( read( chunks, false, body ), GUPnPProgress::WHOLE );
    EXPECT_EQ( body, "hello, gateway of " );
    EXPECT_EQ( read( head + "\r\nhello", true, body ), GUPnPProgress::WHOLE );
    EXPECT_EQ( body, "hello" );
    EXPECT_EQ( read( head + "Content-Length: 0\r\n\r\n", false, body ), GUPnPProgress::WHOLE );
    EXPECT_EQ( body, "" );
}
TEST( GUPnPHttp, CutAnywhereAnAnswerIsWaitedForAndWithItsEndRefused )
{
    const GString answers[] = { GString( OK ) + "Content-Length: 5\r\n\r\nhello",
                                GString( OK ) + "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n" };
    for( const GString& answer : answers )
    {
        ASSERT_EQ( read( answer ), GUPnPProgress::WHOLE );
        for( size_t length = 0; length < answer.size( ) - 2; ++length )
        {
            EXPECT_EQ( read( answer.substr( 0, length ) ), GUPnPProgress::PARTIAL ) << length;
            EXPECT_EQ( read( answer.substr( 0, length ), true ), GUPnPProgress::BAD ) << length;
        }
    }
}
TEST( GUPnPHttp, WhatIsNoAnswerOrTooLongIsRefused )
{
    for( const GString text :
         { "hello\r\n\r\n", "HTTP/1.1\r\n\r\n", "HTTP/1.1 abc\r\n\r\n", "HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n",
           "HTTP/1.1 200 OK\r\nContent-Length: 5x\r\n\r\n", "HTTP/1.1 200 OK\r\nContent-Length: 2147483647\r\n\r\n",
           "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999999\r\n\r\n",
           "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n",
           "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n-1\r\n",
           "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nffffffff\r\n" } )
        EXPECT_EQ( read( text ), GUPnPProgress::BAD ) << text;
    const GString lots( 257 * 1024, 'x' );
    EXPECT_EQ( read( lots ), GUPnPProgress::BAD );
    EXPECT_EQ( read( OK + lots ), GUPnPProgress::BAD );
    EXPECT_EQ( read( GString( OK ) + "\r\n" + lots ), GUPnPProgress::BAD );
}
TEST( GUPnPHttp, TakesADottedAddressApart )
{
    GUPnPAddress address;
    ASSERT_TRUE( GUPnPSplitURL( "http://10.0.0.1:5000/root.xml?a=b", address ) );
    EXPECT_EQ( address.host, u"10.0.0.1:5000" );
    EXPECT_EQ( address.path, "/root.xml?a=b" );
    ASSERT_TRUE( GUPnPSplitURL( "http://10.0.0.1", address ) );
    EXPECT_EQ( address.host, u"10.0.0.1:80" );
    EXPECT_EQ( address.path, "/" );
    for( const std::string_view url : { "", "http://", "https://10.0.0.1/", "http://name/", "http://10.0.0.1:0/",
                                        "http://10.0.0.1:99999/", "http://224.0.0.1/", "http://10.0.0.1/a b",
                                        "http://10.0.0.1/a\r\nX: y", "http://10.0.0.1/\"", "10.0.0.1/" } )
        EXPECT_FALSE( splits( url ) ) << url;
}
TEST( GUPnPHttp, FindsTheTextOfAnElement )
{
    const std::string_view xml = "<a><NewPortX>1</NewPortX><NewPort type=\"ui2\">22</NewPort><NewPort>3</NewPort></a>";
    EXPECT_EQ( GUPnPElement( xml, "NewPort" ), "22" );
    EXPECT_EQ( GUPnPElement( xml, "NewPortX" ), "1" );
    for( const std::string_view bad : { "", "NewPort", "<NewPort", "<NewPort a", "</NewPort>" } )
        EXPECT_EQ( GUPnPElement( bad, "NewPort" ), "" );
    EXPECT_EQ( GUPnPElement( "<NewPort>rest", "NewPort" ), "rest" );
}
TEST( GUPnPHttp, NobodyAtTheAddressIsNoAnswer )
{
    TestLog::allow( "WARNING Connection failed on send, error '" );
    GUPnPAnswer answer;
    EXPECT_FALSE( GUPnPExchange( u"127.0.0.1:9", "GET / HTTP/1.1\r\n\r\n", answer ) );
}
