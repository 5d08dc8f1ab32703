#include "platform/common/GCaptureName.h"

#include <gtest/gtest.h>

TEST( GCaptureName, OrdinaryNamesStay )
{
    EXPECT_EQ( GCaptureFriendlyName( u"USB Camera, Inc: \"HD\" 2;3" ), u"USB Camera, Inc: \"HD\" 2;3" );
    EXPECT_EQ( GCaptureFriendlyName( u"Größe \x6444\x50CF" ), u"Größe \x6444\x50CF" );
    EXPECT_EQ( GCaptureFriendlyName( u"" ), u"" );
}

TEST( GCaptureName, ControlCharactersBecomeBlanks )
{
    EXPECT_EQ( GCaptureFriendlyName( u"\r\nA\nB\tC\x7F\x85\x2028"
                                     u"D\x1B" ),
               u"A B C   D" );
    EXPECT_EQ( GCaptureFriendlyName( u"\n\t\x01" ), u"" );
    EXPECT_EQ( GCaptureFriendlyName( GWString( u"A\0B", 3 ) ), u"A B" );
}

TEST( GCaptureName, LongNamesAreCutBetweenCharacters )
{
    EXPECT_EQ( GCaptureFriendlyName( GWString( 128, u'x' ) ), GWString( 128, u'x' ) );
    EXPECT_EQ( GCaptureFriendlyName( GWString( 100000, u'x' ) ), GWString( 128, u'x' ) );
    const GWString pair = u"\xD83C\xDFA5";
    EXPECT_EQ( GCaptureFriendlyName( GWString( 127, u'x' ) + pair ), GWString( 127, u'x' ) );
    EXPECT_EQ( GCaptureFriendlyName( GWString( 126, u'x' ) + pair + u"y" ), GWString( 126, u'x' ) + pair );
}
