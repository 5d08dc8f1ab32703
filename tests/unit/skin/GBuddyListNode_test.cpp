#include "client/skin/nodes/GBuddyListNode.h"

#include "TemplateTest.h"
#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"
#include "client/skin/nodes/GNodeKeys.h"
#include "support/CountAllocations.h"

#include <cstring>

namespace
{
constexpr int WIDTH = 120;
constexpr int HEIGHT = 200;

class GBuddyListNodeTest : public SkinTest
{
protected:
    GBuddyListNodeTest( )
        : list( dynamic_cast<GBuddyListNode*>( GTemplateFactory::create(
              &instance, &engine, nullptr, u"BuddyList", { { u"normalfont", u"14" }, { u"titlefont", u"12" } } ) ) ),
          pixels( static_cast<size_t>( WIDTH * HEIGHT * 4 ), '\0' ), inputMap( static_cast<size_t>( WIDTH * HEIGHT ) )
    {
    }
    ~GBuddyListNodeTest( ) override { delete list; }

    bool update( )
    {
        GAttributeStack stack( &instance, engine.notify );
        return list->update( stack );
    }
    void draw( )
    {
        std::fill( pixels.begin( ), pixels.end( ), '\0' );
        GImageStack images;
        images.pushLayer( { GIT_RGBA32, WIDTH, HEIGHT }, pixels.data( ), inputMap.data( ) );
        list->render( images );
        images.pop( );
    }
    void show( GWStringView buddies )
    {
        instance.set( u"Local_Buddy_List", buddies );
        update( );
        draw( );
    }
    // The names in drawing order, "*" behind a picture.
    std::string order( ) const
    {
        std::string out;
        for( const GBuddyListNode::Region& region : list->getRegions( ) )
            out += "[" + GWideToUTF8( region.guid ) + ( region.picture ? "*]" : "]" );
        return out;
    }
    // A point inside the picture or the row of a buddy.
    GRect find( const std::string& buddy, bool picture ) const
    {
        for( const GBuddyListNode::Region& region : list->getRegions( ) )
            if( GWideToUTF8( region.guid ) == buddy && region.picture == picture ) return region.rect;
        ADD_FAILURE( ) << "no region for " << buddy;
        return { };
    }
    void press( const std::string& buddy, bool picture )
    {
        const GRect rect = find( buddy, picture );
        list->onLButtonDown( nullptr, picture ? rect.left + 3 : rect.right - 3, rect.top + 3 );
    }
    void pressTwice( const std::string& buddy, bool picture )
    {
        press( buddy, picture );
        const GRect rect = find( buddy, picture );
        list->onLButtonDblClk( nullptr, picture ? rect.left + 3 : rect.right - 3, rect.top + 3 );
    }
    uint32_t pixel( int x, int y ) const
    {
        uint32_t colour = 0;
        std::memcpy( &colour, pixels.data( ) + ( static_cast<size_t>( y ) * WIDTH + static_cast<size_t>( x ) ) * 4, 4 );
        return colour;
    }
    std::string takeCommands( )
    {
        std::string out;
        for( const std::string& command : engine.commands ) out += command + "\n";
        engine.commands.clear( );
        return out;
    }

    TestEngine engine;
    GBuddyListNode* list;
    GString pixels;
    std::vector<IGInputHandler*> inputMap;
};
} // namespace

// ---- The list.

TEST_F( GBuddyListNodeTest, AnEmptyListDrawsOnlyTheTitle )
{
    show( u"" );
    EXPECT_EQ( order( ), "[]" );
    EXPECT_EQ( text( list->getRegions( ).front( ).list ), "Local_Buddy_List" );
    EXPECT_EQ( list->getRegions( ).front( ).rect.left, 6 );
    EXPECT_EQ( list->getRegions( ).front( ).rect.top, 6 );
    const GRect title = list->getRegions( ).front( ).rect;
    int inTitle = 0;
    int elsewhere = 0;
    for( int y = 0; y < HEIGHT; ++y )
        for( int x = 0; x < WIDTH; ++x )
            if( pixels[static_cast<size_t>( ( y * WIDTH + x ) * 4 + 3 )] )
                ++( title.contains( x, y ) ? inTitle : elsewhere );
    EXPECT_GT( inTitle, 20 );
    EXPECT_EQ( elsewhere, 0 );
}

TEST_F( GBuddyListNodeTest, OnlineBuddiesComeFirstEachPartSorted )
{
    instance.set( u"eve@x_Online", 1 );
    instance.set( u"bob@x_Online", 1 );
    show( u"zoe@x,eve@x;ann@x\tbob@x" );
    EXPECT_EQ( order( ), "[][bob@x*][bob@x][eve@x*][eve@x][ann@x*][ann@x][zoe@x*][zoe@x]" );
}

TEST_F( GBuddyListNodeTest, NamesThatCouldCommandAreNotShown )
{
    TestLog::expect( "WARNING Invalid buddy 'x)(/system?exit)' in the list, ignoring." );
    show( u"bob@x, x)(/system?exit)" );
    EXPECT_EQ( order( ), "[][bob@x*][bob@x]" );
}

TEST_F( GBuddyListNodeTest, OnlyChangesAreReported )
{
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
    instance.set( u"Local_Buddy_List", u"bob@x" );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
    list->setAttribute( u"offlinefont", u"20" );
    EXPECT_TRUE( update( ) );
}

TEST_F( GBuddyListNodeTest, AChangeOfTheListAsksForAPassAndAPictureForARepaint )
{
    show( u"bob@x" );
    TestDesktop::pump( );
    engine.kinds.clear( );
    instance.set( u"Local_Buddy_List", u"bob@x, eve@x" );
    TestDesktop::pump( );
    EXPECT_EQ( engine.kinds, std::vector<int>{ 2 } );
    engine.kinds.clear( );
    const GString picture( 4 * 4 * 3, 'p' );
    GImageTools_instanceWrite( &instance, u"bob@x_Image", { GIT_RGB24, 4, 4 }, picture );
    instance.set( u"bob@x_Online", 1 );
    TestDesktop::pump( );
    EXPECT_EQ( engine.kinds, ( std::vector<int>{ 1, 1 } ) );
}

TEST_F( GBuddyListNodeTest, WatchesEndWithTheBuddyAndWithTheNode )
{
    show( u"bob@x, eve@x" );
    show( u"eve@x" );
    TestDesktop::pump( );
    engine.kinds.clear( );
    instance.set( u"bob@x_Online", 1 );
    TestDesktop::pump( );
    EXPECT_TRUE( engine.kinds.empty( ) );
    delete list;
    list = nullptr;
    for( const GWStringView name : { u"eve@x_Online", u"eve@x_Image", u"Local_Buddy_List", u"Talking_To_List" } )
        instance.set( name, u"1" );
    TestDesktop::pump( );
    EXPECT_TRUE( engine.kinds.empty( ) );
}

// ---- Drawing.

TEST_F( GBuddyListNodeTest, TheFrameBelongsToTheList )
{
    show( u"" );
    EXPECT_EQ( inputMap[0], list );
    EXPECT_EQ( inputMap[static_cast<size_t>( WIDTH * HEIGHT - 1 )], list );
}

TEST_F( GBuddyListNodeTest, AnOnlineBuddyShowsHisPictureAndAnOfflineOneAGreyCopyMadeOnce )
{
    instance.set( u"bob@x_Online", 1 );
    GString red;
    for( int i = 0; i < 8 * 8; ++i ) red += std::string( "\xFF\x00\x00", 3 );
    for( const GWStringView name : { u"bob@x_Image", u"eve@x_Image" } )
        GImageTools_instanceWrite( &instance, GWString( name ), { GIT_RGB24, 8, 8 }, red );
    show( u"bob@x, eve@x" );
    EXPECT_FALSE( instance.isSet( u"bob@x_Image_BW" ) );
    ASSERT_TRUE( instance.isSet( u"eve@x_Image_BW" ) );
    GImageFormat format;
    GRect rect;
    ASSERT_TRUE( GImageTools_instanceReadCheck( &instance, u"eve@x_Image_BW", format, rect ) );
    EXPECT_EQ( format, ( GImageFormat{ GIT_GRAY8, 8, 8 } ) );
    const GString made = instance.getRaw( u"eve@x_Image_BW" );
    GImageTools_instanceWrite( &instance, u"eve@x_Image", { GIT_RGB24, 8, 8 }, GString( 8 * 8 * 3, '\x20' ) );
    draw( );
    EXPECT_EQ( instance.getRaw( u"eve@x_Image_BW" ), made );

    const GRect live = find( "bob@x", true );
    const uint32_t colour = pixel( ( live.left + live.right ) / 2, ( live.top + live.bottom ) / 2 );
    EXPECT_NE( colour & 0xFF, ( colour >> 8 ) & 0xFF );
    const GRect grey = find( "eve@x", true );
    const uint32_t shade = pixel( ( grey.left + grey.right ) / 2, ( grey.top + grey.bottom ) / 2 );
    EXPECT_EQ( shade & 0xFF, ( shade >> 8 ) & 0xFF );
    EXPECT_NE( shade, 0u );
}

TEST_F( GBuddyListNodeTest, ASelectedOfflineBuddyShowsHisLivePicture )
{
    const GString picture( 8 * 8 * 3, 'p' );
    show( u"bob@x" );
    press( "bob@x", false );
    GImageTools_instanceWrite( &instance, u"bob@x_Image", { GIT_RGB24, 8, 8 }, picture );
    draw( );
    EXPECT_FALSE( instance.isSet( u"bob@x_Image_BW" ) );
}

TEST_F( GBuddyListNodeTest, TheSelectedRowAndTheOneUnderThePointerHaveTheirGround )
{
    show( u"bob@x, eve@x" );
    press( "bob@x", false );
    const GRect other = find( "eve@x", false );
    EXPECT_EQ( list->onMouseMove( nullptr, other.right - 3, other.top + 3 ), GRESPONSE_RENDER );
    EXPECT_EQ( list->onMouseMove( nullptr, other.right - 4, other.top + 3 ), GRESPONSE_NONE );
    draw( );
    const GRect row = find( "bob@x", false );
    EXPECT_EQ( pixel( row.right - 2, row.top + 1 ), 0xFFD8E9ECu );
    EXPECT_EQ( pixel( row.right - 1, row.top ), 0xFF000000u );
    EXPECT_EQ( pixel( other.right - 2, other.top + 1 ), 0xFFEED2C1u );
    EXPECT_EQ( list->onMouseoverChanged( false ), GRESPONSE_RENDER );
    draw( );
    EXPECT_EQ( pixel( other.right - 2, other.top + 1 ), 0u );
}

TEST_F( GBuddyListNodeTest, ABuddyWhoIsTalkedToHasAFrame )
{
    show( u"bob@x" );
    const GRect row = find( "bob@x", false );
    instance.set( u"Talking_To_List", u"bob@x" );
    draw( );
    EXPECT_EQ( pixel( row.right - 1, row.top ), 0u );
    instance.set( u"Audio_Capture_Online", 1 );
    draw( );
    EXPECT_EQ( pixel( row.right - 1, row.top ), 0xFF00FFFFu );
}

TEST_F( GBuddyListNodeTest, RowsGrowWithTheSizeOfPictures )
{
    show( u"bob@x" );
    const int low = find( "bob@x", false ).height( );
    list->setAttribute( u"picturesize", u"48" );
    EXPECT_TRUE( update( ) );
    draw( );
    EXPECT_LT( low, 48 );
    EXPECT_EQ( find( "bob@x", false ).height( ), 48 );
    EXPECT_EQ( find( "bob@x", true ).width( ), 48 );
}

TEST_F( GBuddyListNodeTest, SizesAreRaisedByTheFonts )
{
    update( );
    int width = 0;
    int height = 0;
    list->calcMinSize( width, height );
    EXPECT_GT( height, 14 );
    height = 900;
    list->calcMinSize( width, height );
    EXPECT_EQ( height, 900 );
}

// ---- Input.

TEST_F( GBuddyListNodeTest, APressOnTheLivePictureTalks )
{
    instance.set( u"bob@x_Online", 1 );
    show( u"bob@x, eve@x" );
    press( "bob@x", true );
    EXPECT_EQ( takeCommands( ), "(/buddies/bob@x?talk\n" );
    EXPECT_EQ( text( list->getSelected( ) ), "bob@x" );
    press( "bob@x", false );
    press( "eve@x", true );
    EXPECT_EQ( takeCommands( ), "" );
    EXPECT_EQ( text( list->getSelected( ) ), "eve@x" );
    EXPECT_EQ( list->onLButtonUp( nullptr, 1, 1 ), GRESPONSE_RENDER );
    list->onLButtonDown( nullptr, WIDTH - 1, HEIGHT - 1 );
    EXPECT_EQ( text( list->getSelected( ) ), "" );
}

TEST_F( GBuddyListNodeTest, ADoubleClickTalksHandsFreeOrOpensTheChat )
{
    instance.set( u"bob@x_Online", 1 );
    show( u"bob@x, eve@x" );
    pressTwice( "bob@x", true );
    EXPECT_EQ( takeCommands( ), "(/buddies/bob@x?talk\n(/buddies/bob@x?starttalkhandsfree)\n" );
    pressTwice( "bob@x", false );
    EXPECT_EQ( takeCommands( ), "(/skin/foreach_chat/window_bob@x?open\n" );
}

TEST_F( GBuddyListNodeTest, ADoubleClickOnAnOfflineRowStillOpensTheChat )
{
    show( u"eve@x" );
    pressTwice( "eve@x", false );
    EXPECT_EQ( takeCommands( ), "(/skin/foreach_chat/window_eve@x?open\n" );
}

TEST_F( GBuddyListNodeTest, ARightClickOffersWhatCanBeDone )
{
    show( u"g@x" );
    const GRect row = find( "g@x", false );
    EXPECT_EQ( list->onRButtonDown( nullptr, row.right - 3, row.top + 3 ), GRESPONSE_UPDATE );
    EXPECT_EQ( takeCommands( ), "Talk(/buddies/g@x?starttalkhandsfree);Call(/buddies/g@x?call);"
                                "Chat(/skin/foreach_chat/window_g@x?open);Send File(/buddies/g@x?sendfile);"
                                "Show Screen(/buddies/g@x?showscreen);Show Window...(/buddies/g@x?showwindow);"
                                "Reconnect(/buddies/g@x?reconnect);Remove(/buddies/g@x?remove);\n" );
    EXPECT_EQ( list->onRButtonDown( nullptr, 8, 8 ), GRESPONSE_NONE );
    EXPECT_EQ( takeCommands( ), "" );
}

TEST_F( GBuddyListNodeTest, BackspaceRemovesAndTheSelectionMovesOn )
{
    show( u"ann@x, bob@x" );
    press( "ann@x", false );
    EXPECT_EQ( list->onKeyPressed( nullptr, 8 ), GRESPONSE_UPDATE );
    EXPECT_EQ( takeCommands( ), "(/buddies/ann@x?remove)\n" );
    EXPECT_EQ( text( list->getSelected( ) ), "bob@x" );
}

TEST_F( GBuddyListNodeTest, RemovingTheLastBuddyClearsTheSelection )
{
    show( u"ann@x, bob@x" );
    press( "bob@x", false );
    list->onKeyPressed( nullptr, 8 );
    EXPECT_EQ( takeCommands( ), "(/buddies/bob@x?remove)\n" );
    EXPECT_EQ( text( list->getSelected( ) ), "" );
    EXPECT_EQ( list->onKeyPressed( nullptr, 8 ), GRESPONSE_NONE );
    EXPECT_EQ( list->onKeyPressed( nullptr, u'x' ), GRESPONSE_NONE );
    EXPECT_EQ( takeCommands( ), "" );
}

// ---- What a skin may add to the looks.

TEST_F( GBuddyListNodeTest, RowsThatDoNotFitScrollAndTakeClicksOnlyWhereTheyShow )
{
    for( const auto& [name, value] : { std::pair( u"thumbcolor", u"#00FF00FF" ), std::pair( u"picturesize", u"51" ) } )
        list->setAttribute( name, value );
    show( u"a@x, b@x, c@x, d@x, e@x, f@x" );
    EXPECT_EQ( order( ), "[][a@x*][a@x][b@x*][b@x][c@x*][c@x][d@x*][d@x]" );
    const int top = list->getRegions( ).front( ).rect.bottom;
    EXPECT_EQ( find( "a@x", false ).top, top );
    // The wheel moves a row a step, and no further than to the end.
    EXPECT_EQ( list->onMouseWheel( nullptr, -1 ), GRESPONSE_RENDER );
    draw( );
    EXPECT_EQ( order( ).substr( 0, 7 ), "[][b@x*" );
    list->onMouseWheel( nullptr, -100 );
    EXPECT_EQ( list->onMouseWheel( nullptr, -1 ), GRESPONSE_NONE );
    draw( );
    EXPECT_EQ( find( "f@x", false ).bottom, HEIGHT );
    EXPECT_EQ( find( "c@x", false ).top, top );
    // The thumb is dragged, and selects nobody.
    const int x = WIDTH - 8;
    EXPECT_EQ( list->onLButtonDown( nullptr, x, HEIGHT - 2 ), GRESPONSE_RENDER | GRESPONSE_CAPTURE );
    EXPECT_EQ( list->onMouseMove( nullptr, x, top ), GRESPONSE_RENDER );
    EXPECT_EQ( list->onLButtonUp( nullptr, x, top ), GRESPONSE_RENDER | GRESPONSE_RELEASE );
    EXPECT_TRUE( list->getSelected( ).empty( ) );
    draw( );
    EXPECT_EQ( find( "a@x", false ).top, top );
}

TEST_F( GBuddyListNodeTest, ToTheLetterNothingScrolls )
{
    list->setAttribute( u"picturesize", u"50" );
    show( u"a@x, b@x, c@x, d@x, e@x, f@x" );
    EXPECT_EQ( list->onMouseWheel( nullptr, -1 ), GRESPONSE_NONE );
    EXPECT_GT( find( "f@x", false ).bottom, HEIGHT );
}

TEST_F( GBuddyListNodeTest, RoundRowsLeaveTheirCornersAndHaveNoBlackFrame )
{
    for( const auto& [name, value] :
         { std::pair( u"corner", u"6" ), std::pair( u"mouseoverbgcolor", u"#FF0000FF" ),
           std::pair( u"picturesize", u"40" ), std::pair( u"margin", u"0" ), std::pair( u"picturepad", u"4" ) } )
        list->setAttribute( name, value );
    const GString grey( 8 * 8 * 3, '\x40' );
    GImageTools_instanceWrite( &instance, u"bob@x_Image_BW", { GIT_RGB24, 8, 8 }, grey );
    show( u"bob@x" );
    const GRect row = find( "bob@x", false );
    EXPECT_EQ( row.left, 0 );
    list->onMouseMove( nullptr, row.right - 2, row.top + 2 );
    draw( );
    constexpr uint32_t RED = 0xFF0000FF;
    EXPECT_EQ( pixel( row.left, row.top ), 0u );
    EXPECT_EQ( pixel( row.left + 20, row.top ), RED );
    // The picture's own corner shows the ground, its edge the picture.
    EXPECT_EQ( pixel( row.left + 4, row.top + 4 ), RED );
    EXPECT_NE( pixel( row.left + 4, row.top + 20 ), RED );
}

TEST_F( GBuddyListNodeTest, WhoIsTalkingMayHaveAFrameAndEachStateASecondLine )
{
    for( const auto& [name, value] : { std::pair( u"hearcolor", u"#00FF00FF" ), std::pair( u"picturesize", u"40" ),
                                       std::pair( u"heartext", u"|||||||" ), std::pair( u"notefont", u"10,,#0000FFFF" ),
                                       std::pair( u"normalfont", u"10,,#FFFFFFFF" ) } )
        list->setAttribute( name, value );
    instance.set( u"bob@x_Online", 1 );
    show( u"bob@x" );
    const GRect row = find( "bob@x", false );
    const auto isBlueBelow = [&]
    {
        draw( );
        for( int y = row.top + 20; y < row.bottom - 2; ++y )
            for( int x = row.left + 42; x < row.right - 2; ++x )
            {
                const uint32_t colour = pixel( x, y );
                if( ( colour >> 16 & 255 ) > ( colour & 255 ) ) return true;
            }
        return false;
    };
    EXPECT_FALSE( isBlueBelow( ) );
    EXPECT_NE( pixel( row.left, row.top + 20 ), 0xFF00FF00 );
    instance.insert( u"Listening_To_List", u"bob@x" );
    EXPECT_TRUE( isBlueBelow( ) );
    EXPECT_EQ( pixel( row.left, row.top + 20 ), 0xFF00FF00 );
}

// ---- Keyboard.

TEST_F( GBuddyListNodeTest, KeysReachEverybodyWhereTheSkinAsksForIt )
{
    GWString buddies;
    for( int i = 0; i < 40; ++i ) buddies += GConcat( u"b", GNumber( 100 + i ), u"@x," );
    show( buddies );
    EXPECT_FALSE( list->wantsKeyboardFocus( ) );
    EXPECT_EQ( list->onKeyDown( nullptr, GKEY_DOWN ), GRESPONSE_NONE );
    list->setAttribute( u"focusable", u"1" );
    list->setAttribute( u"thumbcolor", u"#FF0000FF" );
    update( );
    draw( );
    EXPECT_TRUE( list->wantsKeyboardFocus( ) );
    list->onKeyDown( nullptr, GKEY_DOWN );
    EXPECT_EQ( text( list->getSelected( ) ), "b100@x" );
    list->onKeyDown( nullptr, GKEY_PAGE_DOWN );
    EXPECT_GT( text( list->getSelected( ) ), "b105@x" );
    list->onKeyDown( nullptr, GKEY_END );
    list->onKeyDown( nullptr, GKEY_DOWN );
    EXPECT_EQ( text( list->getSelected( ) ), "b139@x" );
    draw( );
    EXPECT_EQ( find( "b139@x", false ).bottom, HEIGHT );
    list->onKeyDown( nullptr, GKEY_HOME );
    list->onKeyDown( nullptr, GKEY_UP );
    list->onKeyDown( nullptr, GKEY_PAGE_UP );
    EXPECT_EQ( text( list->getSelected( ) ), "b100@x" );
    draw( );
    EXPECT_TRUE( GRectHasVolume( find( "b100@x", false ) ) );
}

TEST_F( GBuddyListNodeTest, ReturnOpensTheChatAndTheMenuKeyTheMenu )
{
    show( u"bob@x" );
    list->setAttribute( u"focusable", u"1" );
    update( );
    EXPECT_EQ( list->onKeyPressed( nullptr, 13 ), GRESPONSE_NONE );
    list->onKeyDown( nullptr, GKEY_MENU );
    EXPECT_EQ( takeCommands( ), "" );
    list->onKeyDown( nullptr, GKEY_DOWN );
    EXPECT_EQ( list->onKeyPressed( nullptr, 13 ), GRESPONSE_RENDER );
    EXPECT_EQ( takeCommands( ), "(/skin/foreach_chat/window_bob@x?open\n" );
    EXPECT_EQ( list->onKeyDown( nullptr, GKEY_MENU ), GRESPONSE_UPDATE );
    EXPECT_EQ( takeCommands( ).substr( 0, 40 ), "Talk(/buddies/bob@x?starttalkhandsfree);" );
    EXPECT_EQ( list->onKeyDown( nullptr, GKEY_F10 ), GRESPONSE_NONE );
    GNodeKeys_setSource( []( int key ) { return key == GKEY_SHIFT; } );
    EXPECT_EQ( list->onKeyDown( nullptr, GKEY_F10 ), GRESPONSE_UPDATE );
    GNodeKeys_setSource( nullptr );
}

TEST_F( GBuddyListNodeTest, TheHeldSpaceKeyTalks )
{
    instance.set( u"bob@x_Online", 1 );
    show( u"bob@x, eve@x" );
    list->setAttribute( u"focusable", u"1" );
    update( );
    list->onKeyDown( nullptr, GKEY_DOWN );
    for( int i = 0; i < 3; ++i ) list->onKeyDown( nullptr, GKEY_SPACE );
    EXPECT_EQ( takeCommands( ), "(/buddies/bob@x?starttalkhandsfree)\n" );
    list->onKeyUp( nullptr, GKEY_SPACE );
    list->onKeyUp( nullptr, GKEY_SPACE );
    EXPECT_EQ( takeCommands( ), "(/buddies/bob@x?stoptalkhandsfree)\n" );
    // Losing the keyboard ends it as well.
    list->onKeyDown( nullptr, GKEY_SPACE );
    list->onShow( nullptr );
    list->onKeyDown( nullptr, GKEY_SPACE );
    list->onKeyboardFocusChanged( false );
    EXPECT_EQ( takeCommands( ), "(/buddies/bob@x?starttalkhandsfree)\n(/buddies/bob@x?stoptalkhandsfree)\n"
                                "(/buddies/bob@x?starttalkhandsfree)\n(/buddies/bob@x?stoptalkhandsfree)\n" );
    list->onKeyDown( nullptr, GKEY_END );
    EXPECT_EQ( list->onKeyDown( nullptr, GKEY_SPACE ), GRESPONSE_NONE );
    EXPECT_EQ( takeCommands( ), "" );
}

TEST_F( GBuddyListNodeTest, TheRingIsAroundTheRowThatTheKeysReach )
{
    show( u"ann@x, bob@x" );
    list->setAttribute( u"focusable", u"1" );
    update( );
    const auto ring = [&]
    {
        GImageStack images;
        images.pushLayer( { GIT_RGBA32, WIDTH, HEIGHT }, pixels.data( ), inputMap.data( ) );
        list->render( images );
        GRect rect;
        return images.getFocus( rect ) ? rect : GRect( );
    };
    EXPECT_EQ( ring( ), GRect( ) );
    list->onKeyboardFocusChanged( true );
    EXPECT_EQ( ring( ), ( GRect{ 0, 0, WIDTH, HEIGHT } ) );
    list->onKeyDown( nullptr, GKEY_END );
    EXPECT_EQ( ring( ), find( "bob@x", false ) );
    // A click needs no ring.
    press( "bob@x", false );
    EXPECT_EQ( ring( ), GRect( ) );
}

TEST_F( GBuddyListNodeTest, AnUnchangedPassAllocatesNothing )
{
    show( u"a-buddy-with-a-long-name@example.org, b-buddy-with-a-long-name@example.org" );
    update( );
    EXPECT_EQ( countAllocations( [&] { update( ); } ), 0 );
}

TEST_F( GBuddyListNodeTest, ADrawOfASteadyListAllocatesNothing )
{
    for( const GWStringView buddy : { u"ann-with-a-long-name@example.org", u"bob-with-a-long-name@example.org" } )
    {
        instance.set( GConcat( buddy, u"_Online" ), 1 );
        GImageTools_instanceWrite( &instance, GConcat( buddy, u"_Image" ), { GIT_RGB24, 4, 4 }, GString( 48, 'x' ) );
    }
    instance.set( u"Talking_To_List", u"bob-with-a-long-name@example.org" );
    instance.set( u"Audio_Capture_Online", 1 );
    show( u"ann-with-a-long-name@example.org, bob-with-a-long-name@example.org, eve-with-a-long-name@example.org" );
    GImageStack images;
    const auto drawOn = [&]
    {
        images.pushLayer( { GIT_RGBA32, WIDTH, HEIGHT }, pixels.data( ), inputMap.data( ) );
        list->render( images );
        images.pop( );
    };
    drawOn( );
    EXPECT_EQ( countAllocations( drawOn ), 0 );
}

TEST_F( GBuddyListNodeTest, NamesFollowTheDomainThatNeedsNoNaming )
{
    GStringVector drawn;
    static GStringVector* texts = &drawn;
    texts = &drawn;
    GFont::setObserver( []( const GWString& text ) { texts->push_back( text ); } );
    instance.set( u"ann@x_Online", 1 );
    show( u"ann@x, bob@x" );
    EXPECT_EQ( std::count( drawn.begin( ), drawn.end( ), GWString( u"ann@x" ) ), 1 );
    EXPECT_EQ( std::count( drawn.begin( ), drawn.end( ), GWString( u"bob@x..." ) ), 1 );
    drawn.clear( );
    instance.set( u"Default_Domain", u"x" );
    instance.set( u"bob@x_Offline", 1 );
    draw( );
    GFont::setObserver( nullptr );
    EXPECT_EQ( std::count( drawn.begin( ), drawn.end( ), GWString( u"ann" ) ), 1 );
    EXPECT_EQ( std::count( drawn.begin( ), drawn.end( ), GWString( u"bob" ) ), 1 );
}

// ---- Damage.

TEST_F( GBuddyListNodeTest, ANewPictureClaimsItsPlaceAndANewPresenceTheList )
{
    for( const GWStringView buddy : { u"ann@x", u"bob@x" } ) instance.set( GConcat( buddy, u"_Online" ), 1 );
    show( u"ann@x, bob@x" );
    clock.advance( 1000 );
    const auto damage = [this]
    {
        GSkinDamage collected( TestClock::now( ) );
        list->collectDamage( collected );
        return collected.getRect( );
    };
    EXPECT_EQ( damage( ), GRectAccumulator( ) );
    const GString picture( 4 * 4 * 3, '\x55' );
    GImageTools_instanceWrite( &instance, u"bob@x_Image", { GIT_RGB24, 4, 4 }, picture );
    EXPECT_EQ( damage( ), find( "bob@x", true ) );
    draw( );
    clock.advance( 1000 );
    EXPECT_EQ( damage( ), GRectAccumulator( ) );
    instance.set( u"ann@x_Online", 0 );
    EXPECT_EQ( damage( ), ( GRect{ 0, 0, WIDTH, HEIGHT } ) );
    clock.advance( 1000 );
    instance.set( u"Talking_To_List", u"bob@x" );
    EXPECT_EQ( damage( ), ( GRect{ 0, 0, WIDTH, HEIGHT } ) );
}

TEST_F( GBuddyListNodeTest, APictureOutOfSightClaimsNothingAndIsKnown )
{
    GString names;
    for( int i = 100; i < 150; ++i ) names += "b" + std::to_string( i ) + "@x,";
    show( GUTF8ToWide( names ) );
    clock.advance( 1000 );
    GImageTools_instanceWrite( &instance, u"b149@x_Image", { GIT_RGB24, 4, 4 }, GString( 48, 'x' ) );
    GSkinDamage collected( TestClock::now( ) );
    list->collectDamage( collected );
    EXPECT_EQ( collected.getRect( ), GRectAccumulator( ) );
    EXPECT_TRUE( collected.isKnown( ) );
}

TEST_F( GBuddyListNodeTest, WhoStandsInTheListTwiceIsDrawnTwiceAndClaimsBothPlaces )
{
    instance.set( u"ann@x_Online", 1 );
    show( u"ann@x, bob@x, ann@x" );
    EXPECT_EQ( order( ), "[][ann@x*][ann@x][ann@x*][ann@x][bob@x*][bob@x]" );
    clock.advance( 1000 );
    GImageTools_instanceWrite( &instance, u"ann@x_Image", { GIT_RGB24, 4, 4 }, GString( 48, 'x' ) );
    GSkinDamage collected( TestClock::now( ) );
    list->collectDamage( collected );
    const GRect first = find( "ann@x", true );
    EXPECT_EQ( collected.getRect( ), ( GRect{ first.left, first.top, first.right, first.bottom + first.height( ) } ) );
}
