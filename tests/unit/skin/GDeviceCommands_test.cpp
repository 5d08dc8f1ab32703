#include "CommandsTest.h"

using GDeviceCommandsTest = CommandsTest;
using GFileCommandsTest = CommandsTest;

TEST_F( GDeviceCommandsTest, PreviewsOfBothDevices )
{
    load( "" );
    run( "(/dev/audio?startpreview;/dev/audio?stoppreview;/dev/video?startpreview;/dev/video?stoppreview)" );
    EXPECT_EQ( capture( ), "STARTAUDIOPREVIEW" );
    EXPECT_EQ( capture( ), "STOPAUDIOPREVIEW" );
    EXPECT_EQ( capture( ), "STARTVIDEOPREVIEW" );
    EXPECT_EQ( capture( ), "STOPVIDEOPREVIEW" );
}

TEST_F( GDeviceCommandsTest, DevicesAreListedAnew )
{
    load( "" );
    run( "(/dev/audio?list)" );
    EXPECT_EQ( capture( ), "LISTDEVICES" );
}

TEST_F( GDeviceCommandsTest, ADeviceIsResetFromAList )
{
    load( window( "w", "<List/>" ) );
    instance.set( u"Video_Capture_Device", u"Cam" );
    instance.set( u"Audio_Capture_Device", u"Mic" );
    run( "(/dev/video?reset)", node( u"/skin/window_w/list" ) );
    EXPECT_EQ( capture( ), "START Audio_Capture_Device=Mic Video_Capture_Device=Cam" );
    TestLog::expect( "WARNING Tried to 'reset' device '/dev/video' from non-list source, ignoring." );
    run( "(/dev/video?reset)" );
    TestLog::expect( "WARNING Tried to address non-existent device '/dev/nose', ignoring." );
    run( "(/dev/nose?reset)" );
    TestLog::expect( "WARNING Unknown '/dev/audio' action 'x', ignoring." );
    run( "(/dev/audio?x)" );
    EXPECT_EQ( capture( ), "" );
}

TEST_F( GFileCommandsTest, TheSelectedTransferIsOpenedAndCancelled )
{
    instance.set( u"Transfers", u"f1, f2" );
    instance.set( u"f1_Name", u"one" );
    load( window( "w", "<Table prefixlistsrc=\"Transfers\" suffixlist=\"_Name\" title=\"Name\"/>" ) );
    GTemplateNode* table = node( u"/skin/window_w/table" );
    TestLog::expect( "WARNING Unable to 'OPEN' because nothing selected, ignoring." );
    run( "(/fileservice?cancel)", table );
    // A click into the second line, below the titles, selects the first transfer.
    auto* handler = dynamic_cast<GTableNode*>( table );
    for( int y = 0; y < 200 && handler->getSelection( ).empty( ); ++y ) handler->onLButtonDown( nullptr, 1, y );
    const std::string selection = text( handler->getSelection( ) );
    ASSERT_NE( selection, "" );
    run( "(/fileservice?open)", table );
    EXPECT_EQ( files( ), "OPEN File-ID=" + selection );
    run( "(/fileservice?cancel)", table );
    EXPECT_EQ( files( ), "CANCEL File-ID=" + selection );
    TestLog::expect( "WARNING Unrecognized fileservice action 'x', ignoring." );
    run( "(/fileservice?x)", table );
}

TEST_F( GFileCommandsTest, AButtonNamesTheTransfer )
{
    load( window( "w", "<Button id='b'/>" ) );
    run( "(/fileservice?open+id=File#7)", node( u"/skin/window_w/button_b" ) );
    EXPECT_EQ( files( ), "OPEN File-ID=File#7" );
    run( "(/fileservice?cancel+id=File#7)", node( u"/skin/window_w/button_b" ) );
    EXPECT_EQ( files( ), "CANCEL File-ID=File#7" );
    TestLog::expect( "WARNING Unable to 'OPEN' because nothing selected, ignoring." );
    run( "(/fileservice?cancel)", node( u"/skin/window_w/button_b" ) );
    EXPECT_EQ( files( ), "" );
}
