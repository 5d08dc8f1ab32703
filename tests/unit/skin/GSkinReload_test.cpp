#include "client/skin/GSkinReload.h"

#include "TemplateTest.h"
#include "client/drawing/GImageTools.h"
#include "client/skin/nodes/GNodeTools.h"
#include "client/skin/nodes/GWizardNode.h"

#include <filesystem>
#include <malloc.h>

namespace
{
class GSkinReloadTest : public TemplateTest
{
protected:
    // Puts other content into the file that the engine was made from.
    void write( const std::string& content )
    {
        FILE* out = fopen( text( file->path ).c_str( ), "wb" );
        fwrite( content.data( ), 1, content.size( ), out );
        fclose( out );
    }
    void reload( )
    {
        run( "(/system?reloadskin)" );
        tick( );
    }
    void reload( const std::string& content )
    {
        write( "<skin>" + content + "</skin>" );
        reload( );
    }
    GWindowNode* windowNode( GWStringView path ) { return dynamic_cast<GWindowNode*>( node( path ) ); }
    void place( GWindowNode* at, const GRect& rect )
    {
        GWinMove( at->getWin( ), rect );
        at->onReposition( at->getWin( ), rect );
        TestDesktop::pump( );
    }
};
} // namespace

TEST_F( GSkinReloadTest, TheCommandReadsTheFileAgain )
{
    load( window( "a" ) );
    write( "<skin>" + window( "a" ) + window( "b" ) + "</skin>" );
    EXPECT_EQ( node( u"/skin/window_b" ), nullptr );
    reload( );
    EXPECT_NE( node( u"/skin/window_b" ), nullptr );
}

TEST_F( GSkinReloadTest, OpenWindowsAreOpenAgainAtTheirPlaceAndNoCommandRuns )
{
    load( window( "a" ) );
    windowNode( u"/skin/window_a" )->fadeIn( 0 );
    place( windowNode( u"/skin/window_a" ), { 70, 80, 130, 170 } );
    reload( window( "a" ) );
    EXPECT_EQ( windowNode( u"/skin/window_a" )->getAlpha( ), 255 );
    EXPECT_EQ( windowNode( u"/skin/window_a" )->getRect( ), ( GRect{ 70, 80, 130, 170 } ) );
    EXPECT_EQ( value( u"a_Window" ), "" );
    EXPECT_TRUE( windowNode( u"/skin/window_a" )->isVisible( ) );
}

TEST_F( GSkinReloadTest, ClosedWindowsStayClosedWhateverTheSkinStartsWith )
{
    load( "<Window id=\"a\" width=\"40\" height=\"30\"/>" );
    EXPECT_EQ( windowNode( u"/skin/window_a" )->getAlpha( ), 255 );
    windowNode( u"/skin/window_a" )->hide( );
    reload( );
    EXPECT_EQ( windowNode( u"/skin/window_a" )->getAlpha( ), 0 );
    EXPECT_FALSE( windowNode( u"/skin/window_a" )->isVisible( ) );
}

TEST_F( GSkinReloadTest, ASizeOfTheUsersGrowsWithTheSkin )
{
    load( "<Window id=\"a\" x=\"5\" y=\"6\" width=\"40\" height=\"30\"/>" );
    place( windowNode( u"/skin/window_a" ), { 7, 8, 67, 68 } );
    reload( "<Window id=\"a\" x=\"5\" y=\"6\" width=\"80\" height=\"60\"/>" );
    EXPECT_EQ( windowNode( u"/skin/window_a" )->getRect( ), ( GRect{ 7, 8, 127, 128 } ) );
}

TEST_F( GSkinReloadTest, AWindowOfAListIsOpenAgainToo )
{
    instance.set( u"Friends", u"ada, grace" );
    load( "<Foreach id=\"f\" list=\"Friends\" as=\"id\"><Window hidden=\"1\" width=\"40\" height=\"30\"/></Foreach>" );
    windowNode( u"/skin/foreach_f/window_grace" )->fadeIn( 0 );
    place( windowNode( u"/skin/foreach_f/window_grace" ), { 50, 60, 90, 90 } );
    reload( );
    EXPECT_EQ( windowNode( u"/skin/foreach_f/window_grace" )->getAlpha( ), 255 );
    EXPECT_EQ( windowNode( u"/skin/foreach_f/window_grace" )->getRect( ).left, 50 );
    EXPECT_EQ( windowNode( u"/skin/foreach_f/window_ada" )->getAlpha( ), 0 );
}

TEST_F( GSkinReloadTest, AFileThatDoesNotParseKeepsTheSkinAndNamesTheLine )
{
    load( window( "a" ) );
    windowNode( u"/skin/window_a" )->fadeIn( 0 );
    const GTemplateNode* before = engine->getRoot( );
    write( "<skin>\n<Window id=\"b\">\n<Text>\n</Window></skin>" );
    TestLog::expect( "on line 4, keeping the skin as it is" );
    reload( );
    EXPECT_EQ( engine->getRoot( ), before );
    EXPECT_EQ( windowNode( u"/skin/window_a" )->getAlpha( ), 255 );
}

TEST_F( GSkinReloadTest, AFileThatIsGoneKeepsTheSkin )
{
    load( window( "a" ) );
    std::remove( text( file->path ).c_str( ) );
    TestLog::expect( "keeping the skin as it is" );
    reload( );
    EXPECT_NE( node( u"/skin/window_a" ), nullptr );
}

TEST_F( GSkinReloadTest, AnEmptySkinIsNoSkin )
{
    load( window( "a" ) );
    write( "" );
    TestLog::expect( "keeping the skin as it is" );
    reload( );
    EXPECT_NE( node( u"/skin/window_a" ), nullptr );
}

TEST_F( GSkinReloadTest, AChangeOfTheFileIsSeenWithinASecondWhenTheSettingSaysSo )
{
    load( window( "a" ) );
    tickFor( 2000000 );
    write( "<skin>" + window( "a" ) + window( "b" ) + "</skin>" );
    tickFor( 2000000 );
    EXPECT_EQ( node( u"/skin/window_b" ), nullptr );
    instance.set( u"Skin_Reload", 1 );
    tickFor( 1100000 );
    EXPECT_NE( node( u"/skin/window_b" ), nullptr );
    const GTemplateNode* root = engine->getRoot( );
    tickFor( 3000000 );
    EXPECT_EQ( engine->getRoot( ), root ) << "read again without a change";
}

TEST_F( GSkinReloadTest, ABrokenFileIsReadAgainOnlyWhenItChanges )
{
    load( window( "a" ) );
    instance.set( u"Skin_Reload", 1 );
    write( "<skin><a></skin>" );
    TestLog::expect( "keeping the skin as it is" );
    tickFor( 5000000 );
    EXPECT_EQ( TestLog::count( "keeping the skin as it is" ), 1 );
    write( "<skin>" + window( "c" ) + "</skin>" );
    tickFor( 1100000 );
    EXPECT_NE( node( u"/skin/window_c" ), nullptr );
}

TEST_F( GSkinReloadTest, WaitsWhileANodeIsAtWork )
{
    load( window( "a" ) );
    write( "<skin>" + window( "b" ) + "</skin>" );
    {
        const GNodeBusy busy;
        reload( );
        EXPECT_NE( node( u"/skin/window_a" ), nullptr );
    }
    tick( );
    EXPECT_NE( node( u"/skin/window_b" ), nullptr );
}

TEST_F( GSkinReloadTest, TalkHotkeysAndTheCountdownGoOn )
{
    instance.set( u"Talk_Again_Hotkey", u"CONTROL+SPACE" );
    load( window( "a" ) + window( "countdown" ) );
    const auto before = hotkeys( );
    ASSERT_EQ( before.size( ), 1u );
    desktop.leftButton = true;
    instance.insert( u"Talking_To_List", u"ada@example.org" );
    run( "(/system?delayrestart+delay=60)" );
    reload( );
    EXPECT_EQ( hotkeys( ), before );
    EXPECT_EQ( value( u"Talking_To_List" ), "ada@example.org" );
    tickFor( 31000000 );
    EXPECT_EQ( value( u"countdown_Window" ), "open" );
}

TEST_F( GSkinReloadTest, AWizardShowsItsPageAgainWithoutItsCommands )
{
    const std::string skin =
        "<Window id=\"w\" hidden=\"1\"><Wizard><page id=\"one\" title=\"One\"/>"
        "<page id=\"two\" title=\"Two\" onshow=\"(/system?set+name=Shown+value=1)\"/></Wizard></Window>";
    load( skin );
    run( "(/skin/window_w/wizard?jump+target=two)" );
    ASSERT_EQ( value( u"Shown" ), "1" );
    instance.set( u"Shown", u"" );
    reload( skin );
    EXPECT_EQ( text( node( u"/skin/window_w/wizard" )->getAttribute( u"page" ) ), "two" );
    EXPECT_EQ( value( u"Shown" ), "" );
}

TEST_F( GSkinReloadTest, TheKeyboardStaysInItsField )
{
    load( "<Window id=\"w\" width=\"90\" height=\"40\"><Edit id=\"e\" var=\"Field\"/></Window>" );
    GWindowNode* before = windowNode( u"/skin/window_w" );
    before->onLButtonDown( before->getWin( ), 30, 20 );
    ASSERT_NE( before->getKeyFocus( ), nullptr );
    reload( );
    GWindowNode* after = windowNode( u"/skin/window_w" );
    after->onKeyPressed( after->getWin( ), u'x' );
    EXPECT_EQ( value( u"Field" ), "x" );
}

TEST_F( GSkinReloadTest, TwoHundredTimesLeaveNothingBehind )
{
    instance.set( u"Friends", u"ada, grace" );
    instance.set( u"Shown", u"text" );
    load( "<Window id=\"w\" width=\"60\" height=\"40\"><Text text=\"$Shown\" watch=\"Shown, Friends\"/><Edit "
          "var=\"Field\"/>"
          "<List listname=\"Friends\" varname=\"Chosen\"/><If watch=\"Shown\" equals=\"text\"><Copy "
          "src=\"/skin/lib\"/></If></Window>"
          "<lib><Button text=\"Copied\"/></lib>"
          "<Foreach id=\"f\" list=\"Friends\" as=\"id\"><Window width=\"40\" "
          "height=\"30\"><BuddyList/></Window></Foreach>" );
    const auto repeat = [&]( int times )
    {
        for( int i = 0; i < times; ++i )
        {
            reload( );
            TestDesktop::pump( );
        }
        TestLog::clear( );
        return static_cast<long>( mallinfo2( ).uordblks );
    };
    // The first ones fill pools and caches.
    const long before = repeat( 20 );
    const size_t names = instance.getNameCount( );
    const long after = repeat( 200 );
    EXPECT_EQ( instance.getNameCount( ), names );
    EXPECT_LT( after - before, 200 * 128 ) << "bytes more after 200 reloads";
}

TEST_F( GSkinReloadTest, PicturesAreLoadedAgain )
{
    load( window( "a" ) );
    const GWString picture = GUTF8ToWide( VELMORA_SOURCE_DIR "/skin/images/mark.png" );
    GImageFormat format;
    GRect rect;
    ASSERT_TRUE( GImageTools_instanceReadCheck( &instance, picture, format, rect ) );
    instance.set( u"Live_Image", u"kept" );
    EXPECT_TRUE( instance.isSet( picture ) );
    reload( );
    EXPECT_FALSE( instance.isSet( picture ) );
    EXPECT_TRUE( instance.isSet( u"Live_Image" ) );
}

// ---- Which file.

namespace
{
class GSkinChoiceTest : public SkinTest
{
protected:
    GSkinChoiceTest( )
        : _before( std::filesystem::current_path( ) ),
          _folder( testing::TempDir( ) + "skin_choice_" + std::to_string( getpid( ) ) )
    {
        std::filesystem::create_directory( _folder );
        std::filesystem::current_path( _folder );
        for( const char* name :
             { "template.xml", "template@1.5x.xml", "template@2x.xml", "template-paper.xml", "template-paper@2x.xml" } )
            fclose( fopen( name, "wb" ) );
    }
    ~GSkinChoiceTest( ) override
    {
        std::filesystem::current_path( _before );
        std::filesystem::remove_all( _folder );
    }
    GSkinChoice choice( )
    {
        return GSkinChoice( instance, [this] { return scale; } );
    }
    std::string chosen( ) { return text( choice( ).getFile( ) ); }

    double scale = 1;

private:
    std::filesystem::path _before;
    std::filesystem::path _folder;
};
} // namespace

TEST_F( GSkinChoiceTest, TheDesktopsScaleChoosesUnlessTheSettingDoes )
{
    EXPECT_EQ( chosen( ), "template.xml" );
    scale = 1.5;
    EXPECT_EQ( chosen( ), "template@1.5x.xml" );
    scale = 3;
    EXPECT_EQ( chosen( ), "template@2x.xml" );
    instance.set( u"Skin_Scale", 100 );
    EXPECT_EQ( chosen( ), "template.xml" );
    instance.set( u"Skin_Scale", 150 );
    EXPECT_EQ( chosen( ), "template@1.5x.xml" );
    instance.set( u"Skin_Scale", u"desktop" );
    EXPECT_EQ( chosen( ), "template@2x.xml" );
}

TEST_F( GSkinChoiceTest, PaperIsTheOtherPalette )
{
    instance.set( u"Skin_Palette", u"paper" );
    EXPECT_EQ( chosen( ), "template-paper.xml" );
    instance.set( u"Skin_Palette", u"Dusk" );
    EXPECT_EQ( chosen( ), "template.xml" );
}

TEST_F( GSkinChoiceTest, AMissingFileGivesWayToThePlainOneWithOneWarning )
{
    instance.set( u"Skin_Palette", u"Paper" );
    instance.set( u"Skin_Scale", 150 );
    TestLog::expect( "WARNING No skin 'template-paper@1.5x.xml', taking 'template.xml', ignoring." );
    GSkinChoice one = choice( );
    for( int i = 0; i < 20; ++i ) EXPECT_FALSE( one.update( ) );
    EXPECT_EQ( text( one.getFile( ) ), "template.xml" );
    EXPECT_EQ( TestLog::count( "No skin" ), 1 );
}

TEST_F( GSkinChoiceTest, AChangeIsToldOnce )
{
    GSkinChoice one = choice( );
    EXPECT_FALSE( one.update( ) );
    instance.set( u"Skin_Palette", u"Paper" );
    EXPECT_TRUE( one.update( ) );
    EXPECT_FALSE( one.update( ) );
    scale = 2;
    EXPECT_TRUE( one.update( ) );
    EXPECT_EQ( text( one.getFile( ) ), "template-paper@2x.xml" );
}

namespace
{
// A resting engine in a folder of its own, whose skin files each have one window.
class GSkinFollowTest : public GSkinReloadTest
{
protected:
    void SetUp( ) override
    {
        GSkinReloadTest::SetUp( );
        _before = std::filesystem::current_path( );
        _folder = testing::TempDir( ) + "skin_follow_" + std::to_string( getpid( ) );
        std::filesystem::create_directory( _folder );
        std::filesystem::current_path( _folder );
        save( "template.xml", window( "dusk" ) );
        save( "template-paper.xml", window( "paper" ) );
        save( "template@2x.xml", window( "large" ) );
        GSkinPlatform platform = makePlatform( );
        platform.followSettings = true;
        platform.getScale = [this] { return scale; };
        platform.followScale = [this]( std::function<void( )> onChange ) { onScale = std::move( onChange ); };
        engine.reset( GSAFENEW( GTemplate, ( &instance, u"template.xml", platform ) ) );
        tickFor( 1000000 );
        EXPECT_NE( node( u"/skin/window_dusk" ), nullptr );
        EXPECT_EQ( GTimerGetPeriod( timer( ) ), 0 );
    }
    void TearDown( ) override
    {
        engine.reset( );
        EXPECT_FALSE( onScale );
        std::filesystem::current_path( _before );
        std::filesystem::remove_all( _folder );
        GSkinReloadTest::TearDown( );
    }
    static void save( const char* name, const std::string& content )
    {
        FILE* out = fopen( name, "wb" );
        fputs( ( "<skin>" + content + "</skin>" ).c_str( ), out );
        fclose( out );
    }
    // The engine has woken, and shows that window alone.
    void expectShown( GWStringView path )
    {
        TestDesktop::pump( );
        EXPECT_GT( GTimerGetPeriod( timer( ) ), 0 );
        tick( );
        EXPECT_EQ( node( u"/skin/window_dusk" ), nullptr );
        EXPECT_NE( node( path ), nullptr );
    }

    double scale = 1;
    std::function<void( )> onScale;

private:
    std::filesystem::path _before;
    std::filesystem::path _folder;
};
} // namespace

TEST_F( GSkinFollowTest, AnotherPaletteIsShownAtOnceEvenWhileTheEngineRests )
{
    instance.set( u"Skin_Palette", u"Paper" );
    expectShown( u"/skin/window_paper" );
}

TEST_F( GSkinFollowTest, AnotherScaleOfTheDesktopIsShownAtOnceEvenWhileTheEngineRests )
{
    scale = 2;
    ASSERT_TRUE( onScale );
    onScale( );
    expectShown( u"/skin/window_large" );
}
