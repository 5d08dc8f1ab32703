#include "client/app/GClientSettings.h"

#include "support/TestFolder.h"

#include <gtest/gtest.h>

using GClientSettingsTest = TestFolder;

TEST_F( GClientSettingsTest, WithoutOptionsTheSettingsLieInTheWorkingDirectory )
{
    write( "settings.ini", "a: 1\n" );
    const GClientOptions options = GClientOptionsRead( GCommandLine( "" ) );
    EXPECT_EQ( options.settingsPath, u"settings.ini" );
    EXPECT_TRUE( options.avi.empty( ) && options.host.empty( ) && options.keepLogfiles.empty( ) );
    EXPECT_FALSE( options.upgraded || options.uploadlogfiles || options.forceturn );
    EXPECT_EQ( read( "settings.ini" ), "a: 1\n" );
}

TEST_F( GClientSettingsTest, OptionsAreReadWhateverTheCaseOfTheirNames )
{
    const GClientOptions options = GClientOptionsRead(
        GCommandLine( "-property me.ini -avi clip.ogv -host a.example -keepLogfiles 1 -Upgraded -forceturn "
                      "-UPLOADLOGFILES" ) );
    EXPECT_EQ( options.settingsPath, u"me.ini" );
    EXPECT_EQ( options.avi, u"clip.ogv" );
    EXPECT_EQ( options.host, u"a.example" );
    EXPECT_EQ( options.keepLogfiles, u"1" );
    EXPECT_TRUE( options.upgraded && options.uploadlogfiles && options.forceturn );
}

TEST_F( GClientSettingsTest, ResetDeletesTheSettingsFileThatIsNamed )
{
    write( "settings.ini", "a: 1\n" );
    write( "other.ini", "a: 2\n" );
    GClientOptionsRead( GCommandLine( "-reset -property other.ini" ) );
    EXPECT_FALSE( std::filesystem::exists( "other.ini" ) );
    EXPECT_TRUE( std::filesystem::exists( "settings.ini" ) );
    GClientOptionsRead( GCommandLine( "-reset" ) );
    EXPECT_FALSE( std::filesystem::exists( "settings.ini" ) );
}

TEST_F( GClientSettingsTest, RestartAfterACrashRepeatsTheOptionsAndLogsEverything )
{
    EXPECT_EQ( GClientGetRestartArgs( GCommandLine( "" ) ), "-log x" );
    EXPECT_EQ( GClientGetRestartArgs( GCommandLine( "-property me.ini  -silent -HOST a.example" ) ),
               "-log x -property me.ini -silent -HOST a.example" );
    EXPECT_EQ( GClientGetRestartArgs( GCommandLine( "-avi \xE4\xF0.webm" ) ), "-log x -avi \xE4\xF0.webm" );
}

TEST_F( GClientSettingsTest, RestartAfterACrashDoesNothingTwice )
{
    EXPECT_EQ( GClientGetRestartArgs( GCommandLine( "-reset -upgraded -Log lK first -silent" ) ),
               "-log x first -silent" );
}

TEST_F( GClientSettingsTest, ResetOfAMissingFileDoesNoHarm )
{
    EXPECT_EQ( GClientOptionsRead( GCommandLine( "-reset -property none.ini" ) ).settingsPath, u"none.ini" );
}
