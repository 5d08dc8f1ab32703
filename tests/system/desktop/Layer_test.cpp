// What a layered window shows and where it takes clicks, with a compositor, without, and while one comes and goes.
#include "system/desktop/OnDesktop.h"

namespace
{
constexpr QRgb WHITE = 0xFFFFFF;

// A white sheet, and above it a pane of 100 by 100 at 150,150 in four stripes: half transparent red, red of alpha 127, red of alpha
// 1, nothing.
class LayerOnDesktop : public OnDesktop
{
protected:
    void SetUp( ) override
    {
        OnDesktop::SetUp( );
        sheet = GWinOpen( u"sheet", { 100, 100, 400, 300 }, false, &below );
        GWinRepaint( sheet, 300, 200, plain( 300, 200, "\xFF\xFF\xFF\xFF" ).data( ), 255 );
        GWinShow( sheet );
        EXPECT_TRUE( becomes( 350, 150, WHITE ) );
        pane = GWinOpen( u"pane", { 150, 150, 250, 250 }, true, &above );
        const GString stripes[] = { GString( "\x80\0\0\x80", 4 ), GString( "\x7F\0\0\x7F", 4 ),
                                    GString( "\x01\0\0\x01", 4 ), GString( 4, '\0' ) };
        for( int i = 0; i < 100 * 100; ++i ) pixels += stripes[i % 100 / 25];
        GWinRepaint( pane, 100, 100, pixels.data( ), 255 );
        GWinShow( pane );
    }
    void TearDown( ) override
    {
        GWinClose( pane );
        GWinClose( sheet );
        OnDesktop::TearDown( );
    }
    static bool showsGlass( ) { return becomes( 160, 200, 0xFF7F7F ) && becomes( 185, 200, 0xFF8080 ); }
    // Half and more is there, less is not.
    static bool showsShape( ) { return becomes( 160, 200, 0x800000 ) && becomes( 185, 200, WHITE ); }

    WinListener below;
    WinListener above;
    GString pixels;
    GWin sheet = nullptr;
    GWin pane = nullptr;
};
} // namespace

TEST_F( LayerOnDesktop, EachPixelHasItsAlphaWithACompositor )
{
    const auto compositor = startCompositor( );
    ASSERT_TRUE( awaitCompositor( true ) );
    EXPECT_TRUE( showsGlass( ) );
    EXPECT_TRUE( becomes( 235, 200, WHITE ) );
    keepPicture( QStringLiteral( "layer" ) );
}

TEST_F( LayerOnDesktop, ConstantAlphaScalesEachPixel )
{
    const auto compositor = startCompositor( );
    ASSERT_TRUE( awaitCompositor( true ) );
    GWinRepaint( pane, 100, 100, pixels.data( ), 128 );
    EXPECT_TRUE( becomes( 160, 200, 0xFFBFBF ) );
    GWinRepaint( pane, 100, 100, pixels.data( ), 0 );
    EXPECT_TRUE( becomes( 160, 200, WHITE ) );
}

TEST_F( LayerOnDesktop, WithoutACompositorTheShapeIsWhatIsHalfThere )
{
    ASSERT_TRUE( awaitCompositor( false ) );
    EXPECT_TRUE( showsShape( ) );
    EXPECT_TRUE( becomes( 235, 200, WHITE ) );
    keepPicture( QStringLiteral( "shape" ) );
    // Another picture, another shape.
    GWinRepaint( pane, 100, 100, plain( 100, 100, "\x40\x40\0\xFF" ).data( ), 255 );
    EXPECT_TRUE( becomes( 235, 200, 0x404000 ) );
    GWinRepaint( pane, 100, 100, GString( 40000, '\0' ).data( ), 255 );
    EXPECT_TRUE( becomes( 235, 200, WHITE ) && becomes( 160, 200, WHITE ) );
}

TEST_F( LayerOnDesktop, CompositorMayComeAndGoWhileTheWindowShows )
{
    ASSERT_TRUE( showsShape( ) );
    for( int i = 0; i < 2; ++i )
    {
        const auto compositor = startCompositor( );
        EXPECT_TRUE( showsGlass( ) );
        compositor->stop( );
        EXPECT_TRUE( showsShape( ) );
    }
}

TEST_F( LayerOnDesktop, InputPassesWhereThereIsNothing )
{
    for( const bool composited : { false, true } )
    {
        std::unique_ptr<Program> compositor;
        if( composited ) compositor = startCompositor( );
        ASSERT_TRUE( composited ? showsGlass( ) : showsShape( ) );
        above.clicks.clear( );
        below.clicks.clear( );
        // Lower the second time: two clicks at one place within a moment are a double click.
        const char* const passing = composited ? "mousemove 235 210 click 1" : "mousemove 235 200 click 1";
        const char* const passed = composited ? "down 135,110; up 135,110; " : "down 135,100; up 135,100; ";
        drive( QString::fromLatin1( passing ) );
        EXPECT_TRUE( pumpUntil( [&]( ) { return below.clicks == passed; } ) ) << below.clicks;
        EXPECT_EQ( "", above.clicks );
        const char* const taking = composited ? "mousemove 160 210 click 1" : "mousemove 160 200 click 1";
        const char* const taken = composited ? "down 10,60; up 10,60; " : "down 10,50; up 10,50; ";
        drive( QString::fromLatin1( taking ) );
        EXPECT_TRUE( pumpUntil( [&]( ) { return above.clicks == taken; } ) ) << above.clicks;
        if( !composited ) continue;
        // The least that is there takes clicks.
        drive( QStringLiteral( "mousemove 210 200 click 1" ) );
        EXPECT_TRUE( pumpUntil( [&]( ) { return above.clicks.ends_with( "up 60,50; " ); } ) ) << above.clicks;
    }
}

TEST_F( LayerOnDesktop, InputShapeOutlivesHidingAndMinimizing )
{
    GWin win = GWinOpen( u"again", { 500, 200, 600, 300 }, false, &above );
    GWinRepaint( win, 100, 100, pixels.data( ), 255 );
    WinListener ground;
    GWin floor = GWinOpen( u"floor", { 450, 150, 650, 350 }, false, &ground );
    GWinRepaint( floor, 200, 200, plain( 200, 200, "\x20\x40\x60\xFF" ).data( ), 255 );
    GWinShow( floor );
    ASSERT_TRUE( becomes( 470, 170, 0x204060 ) );
    for( const bool minimized : { false, true } )
    {
        GWinShow( win );
        GWinSetForeground( win );
        ASSERT_TRUE( becomes( 510, 250, 0x800000 ) );
        minimized ? GWinMinimize( win ) : GWinHide( win );
        EXPECT_TRUE( becomes( 510, 250, 0x204060 ) );
        minimized ? GWinRestore( win ) : GWinShow( win );
        GWinSetForeground( win );
        ASSERT_TRUE( becomes( 510, 250, 0x800000 ) );
        ground.clicks.clear( );
        drive( QStringLiteral( "mousemove 590 250 click 1" ) );
        EXPECT_TRUE( pumpUntil( [&]( ) { return !ground.clicks.empty( ); } ) ) << minimized;
    }
    GWinClose( win );
    GWinClose( floor );
}

TEST_F( LayerOnDesktop, TopmostStaysAboveAndTakesNoFocus )
{
    GWinSetForeground( sheet );
    ASSERT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( sheet ); } ) );
    EXPECT_TRUE( becomes( 160, 200, 0x800000 ) );
    drive( QStringLiteral( "mousemove 160 200 click 1" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !above.clicks.empty( ); } ) );
    GWinSetForeground( pane );
    drive( QStringLiteral( "key x" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return below.typed == u"x"; } ) );
    EXPECT_TRUE( GWinHasKeyFocus( sheet ) );
    EXPECT_FALSE( GWinHasKeyFocus( pane ) );
    EXPECT_TRUE( property( pane, QStringLiteral( "_NET_WM_STATE" ) ).contains( "_NET_WM_STATE_ABOVE" ) );
    EXPECT_EQ( u"", above.typed );
}
