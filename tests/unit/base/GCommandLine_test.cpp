#include "base/GCommandLine.h"

#include <gtest/gtest.h>

TEST( GCommandLine, OptionsTakeTheNextPlainToken )
{
    const GCommandLine line( "-host a.example b -reset" );
    EXPECT_EQ( line.get( "host" ), "a.example" );
    EXPECT_EQ( line.get( "0" ), "b" );
    EXPECT_TRUE( line.contains( "reset" ) );
    EXPECT_EQ( line.get( "reset" ), "" );
    EXPECT_EQ( line.text( ), "-host a.example b -reset" );
}
TEST( GCommandLine, FirstOfTwoOptionsKeepsItsEmptyValue )
{
    const GCommandLine line( "-log -silent value" );
    EXPECT_TRUE( line.contains( "log" ) );
    EXPECT_EQ( line.get( "log" ), "" );
    EXPECT_EQ( line.get( "silent" ), "value" );
}
TEST( GCommandLine, LastOfSeveralSameOptionsWins )
{
    EXPECT_EQ( GCommandLine( "-a 1 -a 2" ).get( "a" ), "2" );
    EXPECT_EQ( GCommandLine( "-a 1 -a" ).get( "a" ), "" );
}
TEST( GCommandLine, NamesAreLowerCased )
{
    const GCommandLine line( "-keepLogfiles 1" );
    EXPECT_EQ( line.get( "KEEPLOGFILES" ), "1" );
    EXPECT_EQ( line.get( "keeplogfiles" ), "1" );
}
TEST( GCommandLine, PlainTokensAreNumbered )
{
    const GCommandLine line( "x  y z" );
    EXPECT_EQ( line.get( "0" ), "x" );
    EXPECT_EQ( line.get( "1" ), "y" );
    EXPECT_EQ( line.get( "2" ), "z" );
}
TEST( GCommandLine, LoneDashIsAnOptionWithoutAName )
{
    const GCommandLine line( "- value" );
    EXPECT_TRUE( line.contains( "" ) );
    EXPECT_EQ( line.get( "" ), "" );
    EXPECT_EQ( line.get( "0" ), "value" );
}
TEST( GCommandLine, OptionMayBearANumber )
{
    const GCommandLine line( "x -0 y z" );
    EXPECT_EQ( line.get( "0" ), "y" );
    EXPECT_EQ( line.get( "1" ), "z" );
}
TEST( GCommandLine, AbsentOptionLeavesTheTargetAlone )
{
    const GCommandLine line( "" );
    GString out = "before";
    EXPECT_FALSE( line.get( "host", out ) );
    EXPECT_EQ( out, "before" );
    EXPECT_EQ( line.get( "host" ), "" );
    EXPECT_FALSE( line.contains( "" ) );
}
TEST( GCommandLine, PasswordsAreNotForTheLog )
{
    const GString plain = "-log x  -silent file -password_hint dog ";
    EXPECT_EQ( GCommandLine( plain ).getLogText( ), plain );
    EXPECT_EQ( GCommandLine( "-Local_Password  secret next -password -log x" ).getLogText( ),
               "-Local_Password  ******** next -password -log x" );
    EXPECT_EQ( GCommandLine( "" ).getLogText( ), "" );
}
