#include "client/skin/nodes/GButtonNode.h"

#include "NodeTest.h"

class GButtonNodeTest : public NodeTest
{
protected:
    GButtonNode* button( GAttributeList attributes )
    {
        attributes.insert( attributes.end( ), { { u"command", u"(c)" },
                                                { u"downcommand", u"(d)" },
                                                { u"upcommand", u"(u)" },
                                                { u"dblclkcommand", u"(x)" } } );
        auto* node = loadAs<GButtonNode>( { u"Button", attributes, {} } );
        update( );
        return node;
    }
    // A sheet of three columns and two rows of 2 by 2 cells, each of its own colour.
    void sheet( )
    {
        const uint32_t colours[2][3] = { { 0x110000FF, 0x220000FF, 0x330000FF },
                                         { 0x440000FF, 0x550000FF, 0x660000FF } };
        GString pixels;
        for( int y = 0; y < 4; ++y )
            for( int x = 0; x < 6; ++x )
                for( int shift = 24; shift >= 0; shift -= 8 )
                    pixels += static_cast<char>( colours[y / 2][x / 2] >> shift & 255 );
        GImageTools_instanceWrite( instance.get( ), u"sheet", GImageFormat{ GIT_RGBA32, 6, 4 }, pixels );
    }
    using Commands = std::vector<std::string>;
};

TEST_F( GButtonNodeTest, PressAndReleaseRunTheirCommandsWithTheButtonAsSource )
{
    GButtonNode* node = button( { } );
    EXPECT_EQ( node->onLButtonDown( nullptr, 0, 0 ), GRESPONSE_CAPTURE );
    EXPECT_EQ( engine->commands, Commands{ "(d)" } );
    // The release counts wherever the pointer now is.
    EXPECT_EQ( node->onLButtonUp( nullptr, 500, 500 ), GRESPONSE_RELEASE );
    EXPECT_EQ( engine->commands, ( Commands{ "(d)", "(c)", "(u)" } ) );
    EXPECT_EQ( engine->sources, std::vector<GTemplateNode*>( 3, node ) );
}

TEST_F( GButtonNodeTest, DoubleClickRunsItsCommand )
{
    button( { } )->onLButtonDblClk( nullptr, 0, 0 );
    EXPECT_EQ( engine->commands, Commands{ "(x)" } );
}

TEST_F( GButtonNodeTest, PushLatchesAndNeverRunsItsCommand )
{
    GButtonNode* node = button( { { u"type", u"Push" } } );
    node->onLButtonDown( nullptr, 0, 0 );
    EXPECT_TRUE( engine->commands.empty( ) );
    EXPECT_EQ( node->onLButtonUp( nullptr, 0, 0 ), GRESPONSE_RENDER | GRESPONSE_RELEASE );
    EXPECT_TRUE( node->isLatched( ) );
    EXPECT_EQ( engine->commands, Commands{ "(d)" } );
    node->onLButtonDown( nullptr, 0, 0 );
    node->onLButtonUp( nullptr, 0, 0 );
    EXPECT_FALSE( node->isLatched( ) );
    EXPECT_EQ( engine->commands, ( Commands{ "(d)", "(u)" } ) );
}

TEST_F( GButtonNodeTest, ADisabledButtonIgnoresTheMouse )
{
    GButtonNode* node = button( { { u"disabled", u"1" } } );
    EXPECT_EQ( node->onLButtonDown( nullptr, 0, 0 ), GRESPONSE_NONE );
    node->onLButtonUp( nullptr, 0, 0 );
    node->onLButtonDblClk( nullptr, 0, 0 );
    EXPECT_TRUE( engine->commands.empty( ) );
}

TEST_F( GButtonNodeTest, DrawsTheCellOfItsState )
{
    sheet( );
    GButtonNode* node = button( { { u"src", u"sheet(0,0,2,2)" }, { u"disabled", u"$Off" }, { u"type", u"push" } } );
    EXPECT_EQ( draw( 6, 6 ).at( 0, 0 ), 0x110000FFu );
    node->onMouseoverChanged( true );
    EXPECT_EQ( draw( 6, 6 ).at( 0, 0 ), 0x220000FFu );
    node->onLButtonUp( nullptr, 0, 0 );
    EXPECT_EQ( draw( 6, 6 ).at( 0, 0 ), 0x550000FFu );
    node->onMouseoverChanged( false );
    EXPECT_EQ( draw( 6, 6 ).at( 0, 0 ), 0x440000FFu );
    instance->set( u"Off", 1 );
    update( );
    EXPECT_EQ( draw( 6, 6 ).at( 0, 0 ), 0x660000FFu );
}

TEST_F( GButtonNodeTest, APictureWithoutStatesKeepsShowing )
{
    picture( u"plain", 2, 2, 0x112233FF );
    GButtonNode* node = button( { { u"src", u"plain" } } );
    node->onMouseoverChanged( true );
    EXPECT_EQ( draw( 4, 4 ).at( 1, 1 ), 0x112233FFu );
}

TEST_F( GButtonNodeTest, OwnsThePixelsOfItsPictureOrOfItsFrame )
{
    sheet( );
    GButtonNode* node = button( { { u"src", u"sheet(0,0,2,2)" } } );
    EXPECT_EQ( draw( 6, 5 ).owned( node ), ( GRect{ 0, 0, 2, 2 } ) );
    node = button( { { u"text", u"Go" } } );
    EXPECT_EQ( draw( 6, 5 ).owned( node ), ( GRect{ 0, 0, 6, 5 } ) );
}

TEST_F( GButtonNodeTest, LeastSizeIsThePictureOrTheHeightOfTheFont )
{
    sheet( );
    int width = 1;
    int height = 3;
    button( { { u"src", u"sheet(0,0,2,2)" } } )->calcMinSize( width, height );
    EXPECT_EQ( width, 2 );
    EXPECT_EQ( height, 3 );
    button( { { u"text", u"Go" }, { u"font", u"20" } } )->calcMinSize( width, height );
    EXPECT_EQ( width, 2 );
    EXPECT_GE( height, 15 );
}

TEST_F( GButtonNodeTest, TheCaptionTakesTheFontUnderThePointer )
{
    GButtonNode* node =
        button( { { u"text", u"|||||||" }, { u"font", u"14,,#FF0000FF" }, { u"mouseoverfont", u"14,,#00FF00FF" } } );
    const auto reddest = [&]
    {
        int red = 0;
        int green = 0;
        const Canvas& drawn = draw( 60, 30 );
        for( int x = 0; x < 60; ++x )
        {
            red += static_cast<int>( drawn.at( x, 15 ) >> 24 );
            green += static_cast<int>( drawn.at( x, 15 ) >> 16 & 255 );
        }
        return red > green;
    };
    EXPECT_TRUE( reddest( ) );
    EXPECT_EQ( node->onMouseoverChanged( true ), GRESPONSE_RENDER );
    EXPECT_FALSE( reddest( ) );
}

TEST_F( GButtonNodeTest, FocusAndKeysAreAnOption )
{
    GButtonNode* node = button( { } );
    EXPECT_FALSE( node->wantsKeyboardFocus( ) );
    node->onKeyPressed( nullptr, u' ' );
    EXPECT_TRUE( engine->commands.empty( ) );
    node = button( { { u"focusable", u"1" } } );
    EXPECT_TRUE( node->wantsKeyboardFocus( ) );
    node->onKeyPressed( nullptr, u' ' );
    EXPECT_EQ( engine->commands, ( Commands{ "(d)", "(c)", "(u)" } ) );
    node->onKeyPressed( nullptr, u'x' );
    EXPECT_EQ( engine->commands.size( ), 3u );
}

TEST_F( GButtonNodeTest, AKeyThatIsHeldPressesOnce )
{
    GButtonNode* node = button( { { u"focusable", u"1" } } );
    for( const auto& [key, character] : { std::pair( 32, u' ' ), std::pair( 13, u'\r' ) } )
    {
        engine->commands.clear( );
        for( int i = 0; i < 5; ++i ) EXPECT_EQ( node->onKeyPressed( nullptr, character ), GRESPONSE_RENDER );
        EXPECT_EQ( engine->commands.size( ), 3u );
        node->onKeyUp( nullptr, key );
        node->onKeyPressed( nullptr, character );
        EXPECT_EQ( engine->commands.size( ), 6u );
        node->onKeyUp( nullptr, key );
    }
    node->onKeyPressed( nullptr, u' ' );
    node->onKeyboardFocusChanged( false );
    node->onKeyPressed( nullptr, u' ' );
    EXPECT_EQ( engine->commands.size( ), 12u ) << "what the keyboard left does not wait for a release";
}

TEST_F( GButtonNodeTest, ReportsAChangeOnce )
{
    load( { u"Button", { { u"text", u"$T" }, { u"disabled", u"$D" } }, {} } );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
    instance->set( u"T", u"x" );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
    instance->set( u"D", 1 );
    EXPECT_TRUE( update( ) );
}

TEST_F( GButtonNodeTest, WhileHeldDownAFourthColumnShowsWhenThereIsOne )
{
    GString pixels;
    for( int i = 0; i < 16; ++i ) pixels += GString( 3, static_cast<char>( i / 2 % 4 + 1 ) ) + '\xFF';
    GImageTools_instanceWrite( instance.get( ), u"four", GImageFormat{ GIT_RGBA32, 8, 2 }, pixels );
    const auto held = [&]( const char16_t* pressed )
    {
        GButtonNode* node = button( { { u"src", u"four(0,0,2,2)" }, { u"pressed", pressed } } );
        node->onMouseoverChanged( true );
        const bool repaints = node->onLButtonDown( nullptr, 0, 0 ) & GRESPONSE_RENDER;
        EXPECT_EQ( repaints, node->onLButtonUp( nullptr, 0, 0 ) & GRESPONSE_RENDER );
        node->onLButtonDown( nullptr, 0, 0 );
        const uint32_t down = draw( 2, 2 ).at( 0, 0 );
        node->onLButtonUp( nullptr, 0, 0 );
        EXPECT_EQ( draw( 2, 2 ).at( 0, 0 ), 0x020202FFu );
        return std::pair( repaints, down );
    };
    EXPECT_EQ( held( u"1" ), ( std::pair( true, 0x040404FFu ) ) );
    EXPECT_EQ( held( u"" ), ( std::pair( false, 0x020202FFu ) ) );
}

TEST_F( GButtonNodeTest, ATransparentFocusFrameLeavesThePictureWhole )
{
    picture( u"plain", 2, 2, 0x112233FF );
    const auto edge = [&]( const char16_t* colour )
    {
        button( { { u"src", u"plain" }, { u"focusable", u"1" }, { u"focuscolor", colour } } )
            ->onKeyboardFocusChanged( true );
        return draw( 2, 2 ).at( 0, 0 );
    };
    EXPECT_EQ( edge( u"" ), 0x000000FFu );
    EXPECT_EQ( edge( u"#00000000" ), 0x112233FFu );
}

TEST_F( GButtonNodeTest, ASlicedPictureFillsTheWholeFrame )
{
    sheet( );
    GButtonNode* node = button( { { u"src", u"sheet(0,0,2,2)" }, { u"slice", u"1" } } );
    const Canvas& drawn = draw( 9, 7 );
    EXPECT_EQ( drawn.owned( node ), ( GRect{ 0, 0, 9, 7 } ) );
    for( const auto& [x, y] : { std::pair( 0, 0 ), std::pair( 8, 6 ), std::pair( 4, 3 ) } )
        EXPECT_EQ( drawn.at( x, y ), 0x110000FFu );
}

TEST_F( GButtonNodeTest, ADisabledCaptionMayHaveAFontOfItsOwn )
{
    const auto reds = [&]( const char16_t* disabled )
    {
        button( { { u"text", u"|||||" },
                  { u"font", u"14,,#FF0000FF" },
                  { u"disabledfont", u"14,,#00FF00FF" },
                  { u"disabled", disabled } } );
        const Canvas& drawn = draw( 60, 30 );
        uint32_t red = 0;
        for( int x = 0; x < 60; ++x ) red += drawn.at( x, 15 ) >> 24;
        return red;
    };
    EXPECT_GT( reds( u"" ), 0u );
    EXPECT_EQ( reds( u"1" ), 0u );
}

TEST_F( GButtonNodeTest, MarksTheFocusThatAKeyGaveAndNotThatOfAClick )
{
    GButtonNode* node = button( { { u"focusable", u"1" }, { u"text", u"Go" } } );
    const auto isMarked = [&]
    {
        GRect rect;
        return draw( 9, 7 ).images.getFocus( rect );
    };
    EXPECT_FALSE( isMarked( ) );
    node->onKeyboardFocusChanged( true );
    EXPECT_TRUE( isMarked( ) );
    node->onLButtonDown( nullptr, 0, 0 );
    node->onLButtonUp( nullptr, 0, 0 );
    EXPECT_FALSE( isMarked( ) );
    node->onKeyPressed( nullptr, u' ' );
    EXPECT_TRUE( isMarked( ) );
    node->onKeyboardFocusChanged( false );
    EXPECT_FALSE( isMarked( ) );
    node->onLButtonDown( nullptr, 0, 0 );
    node->onKeyboardFocusChanged( true );
    node->onLButtonUp( nullptr, 0, 0 );
    EXPECT_FALSE( isMarked( ) );
}
