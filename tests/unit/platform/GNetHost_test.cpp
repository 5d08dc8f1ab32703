#include "platform/GNet.h"

#include <gtest/gtest.h>

namespace
{
bool split( const GWString& host )
{
    GWString address;
    int port = 0;
    return GNetSplitHost( host, address, port );
}
bool parses( const GWString& address )
{
    uint32_t value = 0;
    return GNetParseAddress( address, value );
}
} // namespace

TEST( GNetHost, SplitsAddressAndPort )
{
    GWString address;
    int port = 0;
    EXPECT_TRUE( GNetSplitHost( u"10.1.2.3:65535", address, port ) );
    EXPECT_EQ( address, u"10.1.2.3" );
    EXPECT_EQ( port, 65535 );
}
TEST( GNetHost, RefusesAMissingHalf )
{
    for( const GWString host : { u"", u":", u":80", u"10.0.0.1", u"10.0.0.1:" } ) EXPECT_FALSE( split( host ) );
}
TEST( GNetHost, RefusesPortsThatAreNone )
{
    for( const GWString host :
         { u"10.0.0.1:0", u"10.0.0.1:65536", u"10.0.0.1:-1", u"10.0.0.1:80x", u"10.0.0.1: 80", u"10.0.0.1:000080" } )
        EXPECT_FALSE( split( host ) );
}
TEST( GNetHost, ReadsDottedAddressesInHostOrder )
{
    uint32_t value = 0;
    EXPECT_TRUE( GNetParseAddress( u"1.2.3.4", value ) );
    EXPECT_EQ( value, 0x01020304u );
    EXPECT_TRUE( parses( u"255.255.255.255" ) );
    for( const GWString text : { u"", u"1.2.3", u"1.2.3.4.5", u"256.1.1.1", u"1..2.3", u"1.2.3.4 ", u"name",
                                 u"0x1.2.3.4", u"1.2.3.0004", u"01.2.3.4", u"1.2.3.00" } )
        EXPECT_FALSE( parses( text ) );
}
TEST( GNetHost, OnlyUnicastHostsCanBeRoutes )
{
    EXPECT_TRUE( GNetIsUnicastHost( u"5.5.5.1:4000" ) );
    EXPECT_TRUE( GNetIsUnicastHost( u"127.0.0.1:1" ) );
    for( const GWString host : { u"0.0.0.0:0", u"0.1.2.3:80", u"224.0.0.1:80", u"255.255.255.255:80", u"240.0.0.1:80",
                                 u"name:80", u"5.5.5.1:0" } )
        EXPECT_FALSE( GNetIsUnicastHost( host ) );
}
TEST( GNetHost, ComposesWhatItSplits )
{
    GWString host = u"old";
    GNetComposeHost( 0x010203FF, 65535, host );
    EXPECT_EQ( host, u"1.2.3.255:65535" );
    GNetComposeHost( 0, 0, host );
    EXPECT_EQ( host, u"0.0.0.0:0" );
}
TEST( GNetHost, OnlyLettersDigitsAndAFewSignsCanBeANameForALookUp )
{
    for( const GWString name : { u"a", u"name.example", u"xn--bcher-kva.example", u"_sip.example", u"7" } )
        EXPECT_TRUE( GNetIsName( name ) );
    for( const GWString name : { u"", u"a b", u"a/b", u"\u00FC.example", u"a\n", u"a:1", u"%", u"@" } )
        EXPECT_FALSE( GNetIsName( name ) );
    EXPECT_FALSE( GNetIsName( GWString( u"a\0b", 3 ) ) );
    EXPECT_TRUE( GNetIsName( GWString( 253, u'a' ) ) );
    EXPECT_FALSE( GNetIsName( GWString( 254, u'a' ) ) );
}
TEST( GNetHost, AddressesForInsideUseAreNotPublic )
{
    for( const GWString host : { u"5.5.5.1:80", u"11.0.0.1:80", u"172.15.0.1:1", u"172.32.0.1:1", u"192.169.0.1:1",
                                 u"100.63.0.1:1", u"100.128.0.1:1" } )
        EXPECT_TRUE( GNetIsPublicHost( host ) );
    for( const GWString host : { u"10.0.0.1:80", u"172.16.0.1:1", u"172.31.255.1:1", u"192.168.0.1:1", u"100.64.0.1:1",
                                 u"100.127.0.1:1", u"169.254.0.1:1", u"127.0.0.1:1", u"224.0.0.1:1", u"5.5.5.1" } )
        EXPECT_FALSE( GNetIsPublicHost( host ) );
}
TEST( GNetHost, KnowsLoopback )
{
    EXPECT_TRUE( GNetIsLoopbackHost( u"127.0.0.1:80" ) );
    EXPECT_TRUE( GNetIsLoopbackHost( u"127.9.9.9" ) );
    EXPECT_FALSE( GNetIsLoopbackHost( u"12.7.0.1:80" ) );
    EXPECT_FALSE( GNetIsLoopbackHost( u"localhost:80" ) );
}
