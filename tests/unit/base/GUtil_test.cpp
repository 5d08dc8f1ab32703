#include "base/GUtil.h"

#include "base/GDebug.h"
#include "support/TestFolder.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace
{
class GUtilFile : public TestFolder
{
};
class GUtilFileDeathTest : public TestFolder
{
};
} // namespace

TEST( GUtil, DecodesOneToThreeBytes )
{
    EXPECT_EQ( GUTF8ToWide( "a\xC3\xA4\xE2\x82\xAC" ), u"a\u00E4\u20AC" );
}
TEST( GUtil, TruncatedThreeByteSequenceIsOneX )
{
    EXPECT_EQ( GUTF8ToWide( "\xE2\x82" ), u"X" );
    EXPECT_EQ( GUTF8ToWide( "\xE2\x82z" ), u"Xz" );
    EXPECT_EQ( GUTF8ToWide( "\xE2" ), u"X" );
    EXPECT_EQ( GUTF8ToWide( "\xC3" ), u"X" );
}
TEST( GUtil, StrayContinuationIsX )
{
    EXPECT_EQ( GUTF8ToWide( "a\x80z" ), u"aXz" );
}
TEST( GUtil, FourByteSequenceIsSkippedWhole )
{
    EXPECT_EQ( GUTF8ToWide( "a\xF0\x9F\x98\x80z" ), u"aXz" );
}
TEST( GUtil, FourByteSequenceSurvivesWhenAstralTextIsKept )
{
    GTextKeepAstral( true );
    const GString text = "a\xF0\x9F\x98\x80z";
    EXPECT_EQ( GUTF8ToWide( text ), u"a\U0001F600z" );
    EXPECT_EQ( GWideToUTF8( GUTF8ToWide( text ) ), text );
    EXPECT_EQ( GUTF8ToWide( "\xF4\x90\x80\x80" ), u"X" );
    EXPECT_EQ( GUTF8ToWide( "\xF0\x80\x80\x80" ), u"X" );
    GTextKeepAstral( false );
}
TEST( GUtil, EncodesEachUnitInUpToThreeBytes )
{
    EXPECT_EQ( GWideToUTF8( u"a\u00E4\u20AC" ), "a\xC3\xA4\xE2\x82\xAC" );
    EXPECT_EQ( GWideToUTF8( u"\U0001F600" ).size( ), 6u );
    const char16_t edges[] = { 0x7F, 0x80, 0x7FF, 0x800, 0xFFFF };
    EXPECT_EQ( GUTF8ToWide( GWideToUTF8( GWStringView( edges, 5 ) ) ), GWString( edges, 5 ) );
}
TEST( GUtil, LowersAsciiCapitalsOnly )
{
    EXPECT_EQ( GToLower( u"AbZ\u00C4[" ), u"abz\u00C4[" );
    EXPECT_EQ( GToLower( std::string_view( "AbZ@[" ) ), "abz@[" );
}
TEST( GUtil, ComparesWithoutCase )
{
    EXPECT_TRUE( GCaseEquals( u"", u"" ) );
    EXPECT_TRUE( GCaseEquals( u"H\u00C4llo", u"h\u00E4LLO" ) );
    EXPECT_FALSE( GCaseEquals( u"a", u"ab" ) );
    EXPECT_FALSE( GCaseEquals( u"@", u"`" ) );
}
TEST( GUtil, TrimsBothEnds )
{
    EXPECT_EQ( GTrim( u" \t\r\na b\n " ), u"a b" );
    EXPECT_EQ( GTrim( u" \n" ), u"" );
}
TEST( GUtil, CalcReadsLeadingDecimal )
{
    EXPECT_EQ( GCalc( u"12x3" ), 12 );
    EXPECT_EQ( GCalc( u"-7" ), -7 );
    EXPECT_EQ( GCalc( u" 7" ), 0 );
    EXPECT_EQ( GCalc( u"-" ), 0 );
    EXPECT_EQ( GCalc( u"" ), 0 );
    EXPECT_EQ( GCalc( u"9223372036854775807" ), INT64_MAX );
    EXPECT_EQ( GCalc( u"9223372036854775808" ), INT64_MAX );
    EXPECT_EQ( GCalc( u"-9223372036854775808" ), INT64_MIN );
    EXPECT_EQ( GCalc( u"-9223372036854775809" ), INT64_MIN );
}
TEST( GUtil, TestIsTrueOrAPositiveNumber )
{
    for( const char* text : { "true", "TRUE", "1", "5" } )
    {
        EXPECT_TRUE( GTest( std::string_view( text ) ) ) << text;
        EXPECT_TRUE( GTest( GUTF8ToWide( text ) ) ) << text;
    }
    for( const char* text : { "", "yes", "0", "-3", "tru" } )
    {
        EXPECT_FALSE( GTest( std::string_view( text ) ) ) << text;
        EXPECT_FALSE( GTest( GUTF8ToWide( text ) ) ) << text;
    }
}
TEST( GUtil, EscapesAndUnescapes )
{
    const GString text = "a\tb\nc\rd\\e: f";
    EXPECT_EQ( GEscape( text, ": " ), "a\\tb\\nc\\rd\\\\e\\:\\ f" );
    EXPECT_EQ( GUnescape( GEscape( text, ": " ) ), text );
    EXPECT_EQ( GUnescape( "a\\" ), "a" );
    EXPECT_EQ( GUnescape( "\\q" ), "q" );
}
TEST( GUtil, SanitizesNames )
{
    EXPECT_EQ( GSanitizeName( u"Al Ice!@Ex-am_ple.ORG\u00E4" ), u"alice@ex-am_ple.org" );
}
TEST( GUtil, SplitsAndDropsEmptyItems )
{
    EXPECT_EQ( GSplitList( u" a, ,b;" ), ( GStringList{ u"a", u"b" } ) );
    EXPECT_EQ( GSplitList( u"a\tb\nc" ), ( GStringList{ u"a", u"b", u"c" } ) );
    EXPECT_TRUE( GSplitList( u"" ).empty( ) );
    EXPECT_EQ( GJoinList( { u"a", u"b" } ), u"a, b" );
    EXPECT_EQ( GJoinList( { } ), u"" );
}
TEST( GUtil, ValidHostRefusesNoHost )
{
    EXPECT_FALSE( GValidHost( u"" ) );
    EXPECT_FALSE( GValidHost( u"0.0.0.0:0" ) );
    EXPECT_TRUE( GValidHost( u"nonsense" ) );
}
TEST( GUtil, FormatsSizesByPowersOf1024 )
{
    EXPECT_EQ( GFormatSize( 1023 ), u"1023B" );
    EXPECT_EQ( GFormatSize( 1024 ), u"1.00KB" );
    EXPECT_EQ( GFormatSize( 1048575 ), u"1024.00KB" );
    EXPECT_EQ( GFormatSize( 1048576 ), u"1.00MB" );
    EXPECT_EQ( GFormatSize( 1073741824 ), u"1.00GB" );
    EXPECT_EQ( GFormatDouble( 2.5, 0 ), u"2" );
    EXPECT_EQ( GFormatDouble( -1.239, 2 ), u"-1.24" );
}
TEST( GUtil, ComposesTwelveHourTime )
{
    const uint64_t midnight = 13000000000ULL * 1000000 - 13000000000ULL % 86400 * 1000000;
    const uint64_t minute = 60000000;
    EXPECT_EQ( GTimeComposeTime( midnight ), u"12:00am" );
    EXPECT_EQ( GTimeComposeTime( midnight + 65 * minute ), u"1:05am" );
    EXPECT_EQ( GTimeComposeTime( midnight + 12 * 60 * minute ), u"12:00pm" );
    EXPECT_EQ( GTimeComposeTime( midnight + ( 23 * 60 + 59 ) * minute ), u"11:59pm" );
}
TEST( GUtil, IdsFromTheWireAreStrict )
{
    EXPECT_TRUE( GValidUserID( u"ann@example.org" ) );
    EXPECT_TRUE( GValidUserID( GConcat( GWString( 252, u'a' ), u"@b" ) ) );
    EXPECT_FALSE( GValidUserID( GConcat( GWString( 253, u'a' ), u"@b" ) ) );
    for( const char16_t* text : { u"", u"ann", u"@example", u"ann@", u"a@b@c", u"Ann@example", u"ann@ex/ample" } )
        EXPECT_FALSE( GValidUserID( text ) ) << GWideToUTF8( text );
    EXPECT_TRUE( GValidDeviceID( u"AB-12" ) );
    EXPECT_TRUE( GValidDeviceID( GWString( 64, u'a' ) ) );
    EXPECT_FALSE( GValidDeviceID( GWString( 65, u'a' ) ) );
    EXPECT_FALSE( GValidDeviceID( u"" ) );
    EXPECT_FALSE( GValidDeviceID( u"a_b" ) );
}
TEST( GUtil, MasksPasswordsOnly )
{
    EXPECT_EQ( GLogMask( u"Local_Password", u"secret" ), u"********" );
    EXPECT_EQ( GLogMask( u"Password_Hint", u"plain" ), u"plain" );
    EXPECT_EQ( GLogMask( u"password", u"" ), u"" );
}
TEST( GUtil, SerializesLittleEndian )
{
    GString buffer;
    GSerialize( uint32_t( 0x01020304 ), buffer );
    GSerialize( uint64_t( 0x1122334455667788 ), buffer );
    GSerialize( "ab", 2, buffer );
    EXPECT_EQ( buffer, GString( "\x04\x03\x02\x01\x88\x77\x66\x55\x44\x33\x22\x11" ) + "ab" );
    uint32_t small = 0;
    uint64_t large = 0;
    EXPECT_EQ( GDeserialize( buffer.data( ), 4, small ), 4 );
    EXPECT_EQ( small, 0x01020304u );
    EXPECT_EQ( GDeserialize( buffer.data( ) + 4, 8, large ), 8 );
    EXPECT_EQ( large, 0x1122334455667788u );
    EXPECT_EQ( GDeserialize( buffer.data( ), 3, small ), 0 );
    EXPECT_EQ( GDeserialize( buffer.data( ), 7, large ), 0 );
}
TEST( GUtil, ConsumeMovesTheRestDown )
{
    GString buffer = "abcd";
    GConsume( buffer, 0 );
    EXPECT_EQ( buffer, "abcd" );
    GConsume( buffer, 3 );
    EXPECT_EQ( buffer, "d" );
}
TEST( GUtilDeathTest, ConsumePastTheEndAborts )
{
    GString buffer = "abcd";
    EXPECT_DEATH( GConsume( buffer, 5 ),
                  "ERROR: Precondition failed, aborting. \\(num <= \\(int\\)buffer.size\\( \\)\\)" );
}
TEST( GUtilDeathTest, SerializeOfNothingAborts )
{
    GString buffer;
    EXPECT_DEATH( GSerialize( nullptr, 1, buffer ), "value && valueSize >= 0" );
    EXPECT_DEATH( GSerialize( "a", -1, buffer ), "value && valueSize >= 0" );
}

TEST_F( GUtilFile, SavesLoadsAppendsMovesDeletes )
{
    GString text;
    EXPECT_FALSE( GFileExists( u"folder/deep/a.txt" ) );
    EXPECT_TRUE( GFileSave( u"folder/deep/a.txt", "one", 3 ) );
    EXPECT_TRUE( GFileAppend( u"folder/deep/a.txt", "two", 3 ) );
    EXPECT_TRUE( GFileLoad( u"folder/deep/a.txt", text ) );
    EXPECT_EQ( text, "onetwo" );
    EXPECT_TRUE( GFileMove( u"folder/deep/a.txt", u"folder/\u00E4.txt" ) );
    EXPECT_TRUE( GFileExists( u"folder/\u00E4.txt" ) );
    EXPECT_EQ( GFileList( u"folder", u"" ), ( GStringList{ u"\u00E4.txt" } ) );
    EXPECT_TRUE( GFileDelete( u"folder/\u00E4.txt" ) );
    EXPECT_FALSE( GFileDelete( u"folder/\u00E4.txt" ) );
    EXPECT_FALSE( GFileMove( u"folder/no", u"folder/yes" ) );
}
TEST_F( GUtilFile, MissingFileLoadsAsEmpty )
{
    GString text = "old";
    EXPECT_FALSE( GFileLoad( u"none", text ) );
    EXPECT_TRUE( text.empty( ) );
}
TEST_F( GUtilFile, WhatHasNoEndIsNotLoaded )
{
    GString text = "old";
    EXPECT_FALSE( GFileLoad( u"/dev/zero", text ) );
    EXPECT_TRUE( text.empty( ) );
    const int pipe = openPipe( "pipe" );
    EXPECT_FALSE( GFileLoad( u"pipe", text ) );
    close( pipe );
}
TEST_F( GUtilFile, DirectoryIsNoFile )
{
    GString text;
    EXPECT_TRUE( GDirCreateRecursive( u"a/b\\c" ) );
    EXPECT_TRUE( GDirCreateRecursive( u"a/b/c" ) );
    EXPECT_TRUE( std::filesystem::is_directory( "a/b/c" ) );
    EXPECT_FALSE( GFileExists( u"a" ) );
    EXPECT_FALSE( GFileLoad( u"a", text ) );
    EXPECT_FALSE( GFileSave( u"a", "x", 1 ) );
}
TEST_F( GUtilFile, DirectoryBelowAFileFails )
{
    EXPECT_TRUE( GFileSave( u"plain", "x", 1 ) );
    EXPECT_FALSE( GDirCreateRecursive( u"plain/below" ) );
    EXPECT_FALSE( GFileSave( u"plain/below/file", "x", 1 ) );
    TestLog::expect( "WARNING: Assertion failed. (_GFileValidateDir( path ))" );
    EXPECT_FALSE( GFileAppend( u"plain/below/file", "x", 1 ) );
}
TEST_F( GUtilFileDeathTest, AbsolutePathAborts )
{
    EXPECT_DEATH( GFileSave( u"/tmp/x", "a", 1 ), "ERROR: Precondition failed, aborting." );
    EXPECT_DEATH( GFileSave( u"\\x", "a", 1 ), "ERROR: Precondition failed, aborting." );
    EXPECT_DEATH( GFileAppend( u"/tmp/x", "a", 1 ), "ERROR: Precondition failed, aborting." );
    EXPECT_DEATH( GFileExists( u"" ), "!path.empty\\( \\)" );
    EXPECT_DEATH( GFileMove( u"", u"a" ), "!fromPath.empty\\( \\) && !toPath.empty\\( \\)" );
}
