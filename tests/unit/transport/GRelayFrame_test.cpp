#include "client/transport/GRelayFrame.h"

#include "runtime/GHTTPHeaders.h"

#include <gtest/gtest.h>

namespace
{
GString framed( GWStringView to, const GString& bytes )
{
    GHTTPHeaders message( u"SENDUDP" );
    message.set( u"Remote-Host", to );
    message.addContent( bytes );
    return message.serialize( );
}
} // namespace

TEST( RelayFrame, IsTheMessageToTheByte )
{
    const GString bytes( "a\0b\r\n\r\nc", 9 );
    GString out = "what waits already";
    GRelayFrameAppend( out, u"127.0.0.1:80", bytes );
    EXPECT_EQ( out, "what waits alreadySENDUDP / HTTP/1.1\r\nContent-Length: 9\r\nRemote-Host: 127.0.0.1:80\r\n\r\n" +
                        bytes );
    for( const GWString& to : { GWString( u"10.0.0.1:65535" ), GWString( u"relay.example:1" ), GWString( u"" ),
                                GWString( u"a\\b" ), GWString( u"a\r\nX: y" ), GWString( u"\u00e4:1" ),
                                GWString( u"a: b" ), GWString( 1, u'\x7f' ), GWString( 1, u'\0' ) } )
        for( const size_t length : { 0, 1, 1472, 65535 } )
        {
            out.clear( );
            GRelayFrameAppend( out, to, GString( length, 'x' ) );
            EXPECT_EQ( out, framed( to, GString( length, 'x' ) ) );
        }
}
