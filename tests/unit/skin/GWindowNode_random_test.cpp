// Windows of everything that can be drawn, through random changes: what is drawn in parts is, pixel by pixel and in who owns which
// place, what a whole drawing gives.
#include "NodeTest.h"
#include "client/skin/nodes/GWindowNode.h"

#include <random>

namespace
{
constexpr int WIDTH = 220;
constexpr int HEIGHT = 180;
constexpr int64_t INTERVAL = 66666;
constexpr int BUDDIES = 9;
const char16_t* const NORMAL = u"12,,#102030FF";
const char16_t* const HOVER = u"12,b,#A01020C0";

// What the windows differ in.
struct Look
{
    const char* name;
    bool alpha;   // The desktop shines through.
    bool round;   // Rows and pictures have round corners, rows scroll.
    bool breathe; // A picture breathes.
};
} // namespace

class RandomPartsTest : public NodeTest, public testing::WithParamInterface<Look>
{
protected:
    RandomPartsTest( )
    {
        GStringList names;
        for( int i = 0; i < BUDDIES; ++i )
        {
            names.push_back( GConcat( u"buddy", i, u"@example.com" ) );
            _buddies.push_back( names.back( ) );
            setPicture( GConcat( _buddies.back( ), u"_Image" ), GIT_RGB24, 16, 12 );
        }
        // One stands in the list twice.
        names.push_back( _buddies.front( ) );
        instance->set( u"Local_Buddy_List", names );
        instance->set( u"Files", u"f1, f2, f3" );
        instance->set( u"Audio_Capture_Online", 1 );
        instance->set( u"Rows", u"one, two, three, four, five" );
        for( const char16_t* name : { u"Part_A", u"Part_B" } ) setPicture( name, GIT_RGBA32, 20, 20 );
        setPicture( u"Part_C", GIT_RGB24, 30, 20 );
        setPicture( u"Sheet", GIT_RGBA32, 60, 20 );
        setPicture( u"Ring", GIT_RGBA32, 9, 9 );
        window = loadAs<GWindowNode>( make( GetParam( ) ) );
        update( );
        step( );
    }

    static Element make( const Look& look )
    {
        const GWString round = look.round ? u"5" : u"0";
        const Element buddies{ u"BuddyList",
                               { { u"normalfont", NORMAL },
                                 { u"mouseoverfont", HOVER },
                                 { u"picturesize", u"22" },
                                 { u"corner", round },
                                 { u"thumbcolor", look.round ? u"#00000080" : u"" },
                                 { u"framewidth", u"2" },
                                 { u"groundcolor", u"#E0E8F0FF" },
                                 { u"hearcolor", u"#00C000A0" },
                                 { u"onlinetext", u"here" },
                                 { u"offlinetext", u"away" },
                                 { u"focusable", u"true" } },
                               {} };
        const Element table{ u"Table",
                             { { u"prefixlistsrc", u"Files" },
                               { u"suffixlist", u"_Name,_Done" },
                               { u"title", u"Name,Done" },
                               { u"cellfont", NORMAL },
                               { u"mouseoverfont", HOVER },
                               { u"barsuffix", u"_Done" },
                               { u"barcolor", u"#2060C0C0" },
                               { u"focusable", u"true" } },
                             {} };
        const Element list{ u"List",
                            { { u"listname", u"Rows" },
                              { u"font", NORMAL },
                              { u"rowradius", u"4" },
                              { u"mouseoverbgcolor", u"#20802080" } },
                            {} };
        const Element edit{ u"Edit",
                            { { u"var", u"Typed" },
                              { u"font", NORMAL },
                              { u"editing", u"full" },
                              { u"vscroll", u"true" },
                              { u"growlines", u"3" } },
                            {} };
        const Element button{ u"Button",
                              { { u"text", u"Press" },
                                { u"font", NORMAL },
                                { u"mouseoverfont", HOVER },
                                { u"src", u"Sheet(0,0,20,20)" },
                                { u"slice", u"4" },
                                { u"focusable", u"true" } },
                              {} };
        const Element bar{ u"Progress",
                           { { u"src", u"Part_Bar" },
                             { u"width", u"90" },
                             { u"scale", u"100" },
                             { u"fillsrc", u"Sheet(0,0,60,6)" },
                             { u"y", u"3" } },
                           {} };
        const auto image = []( const char16_t* source, const char16_t* align, const char16_t* slice, bool breathe )
        {
            return Element{ u"Image",
                            { { u"src", source },
                              { u"align", align },
                              { u"valign", u"stretch" },
                              { u"slice", slice },
                              { u"breathe", breathe ? u"900" : u"0" } },
                            {} };
        };
        const auto cell = []( const char16_t* extra, const Element& inner ) {
            return Element{ u"Cell", { { u"extra", extra }, { u"align", u"stretch" } }, { inner } };
        };
        const Element right{ u"Col",
                             { },
                             { cell( u"30", image( u"Part_A", u"stretch", u"0", look.breathe ) ),
                               cell( u"0", image( u"Part_B", u"center", u"0", false ) ),
                               cell( u"20", image( u"Part_C", u"fit", u"0", false ) ), cell( u"10", bar ),
                               cell( u"20", table ), cell( u"20", list ), cell( u"0", edit ), cell( u"0", button ) } };
        // A picture over all, in nine pieces, and one that stands on both halves.
        return { u"Window",
                 { { u"id", u"w" },
                   { u"width", GConcat( WIDTH ) },
                   { u"height", GConcat( HEIGHT ) },
                   { u"enablealpha", look.alpha ? u"true" : u"" },
                   { u"focussrc", u"Ring" },
                   { u"focusslice", u"3" },
                   { u"focusout", u"3" } },
                 { { u"Gradient", { { u"from", u"#F0E0D0A0" }, { u"to", u"#20304080" }, { u"vertical", u"on" } }, {} },
                   image( u"Part_B", u"stretch", u"6", false ),
                   { u"Row", { }, { cell( u"50", buddies ), cell( u"50", right ) } },
                   image( u"Part_A", u"center", u"0", false ) } };
    }

    int pick( int count ) { return static_cast<int>( _random( ) % static_cast<unsigned>( count ) ); }

    // A picture of chance; with alpha also wholly clear and wholly opaque ones.
    void setPicture( const GWString& name, int type, int width, int height )
    {
        GString pixels( static_cast<size_t>( width * height * ( type == GIT_RGBA32 ? 4 : 3 ) ), '\0' );
        const int kind = pick( 4 );
        for( char& byte : pixels ) byte = static_cast<char>( kind == 0 ? 0 : kind == 1 ? 255 : pick( 256 ) );
        GImageTools_instanceWrite( instance.get( ), name, { type, width, height }, pixels );
    }
    void newPicture( )
    {
        const int at = pick( BUDDIES + 3 );
        const int width = pick( 8 ) ? 20 : 8 + pick( 20 );
        _history += " picture " + std::to_string( at ) + " " + std::to_string( width );
        if( at < BUDDIES ) return setPicture( GConcat( buddy( at ), u"_Image" ), GIT_RGB24, width, 12 );
        const char16_t* const names[] = { u"Part_A", u"Part_B", u"Part_C" };
        setPicture( names[at - BUDDIES], at == BUDDIES + 2 ? GIT_RGB24 : GIT_RGBA32, width, 20 );
    }
    const GWString& buddy( int at ) const { return _buddies[static_cast<size_t>( at )]; }

    void changeValue( )
    {
        switch( pick( 6 ) )
        {
        case 0: return instance->set( u"Part_Bar", pick( 120 ) );
        case 1: return instance->set( GConcat( u"f", 1 + pick( 3 ), u"_Name" ), GConcat( u"name", pick( 50 ) ) );
        case 2: return instance->set( GConcat( u"f", 1 + pick( 3 ), u"_Done" ), GConcat( pick( 101 ), u" %" ) );
        case 3: return instance->set( GConcat( buddy( pick( BUDDIES ) ), u"_Online" ), pick( 2 ) );
        case 4: return instance->set( u"Talking_To_List", buddy( pick( BUDDIES ) ) );
        default: return instance->set( u"Listening_To_List", buddy( pick( BUDDIES ) ) );
        }
    }
    void useWindow( )
    {
        const int x = pick( WIDTH ), y = pick( HEIGHT );
        const int kind = pick( 5 );
        _history += " use " + std::to_string( kind ) + " " + std::to_string( x ) + "," + std::to_string( y );
        switch( kind )
        {
        case 0:
            window->onLButtonDown( nullptr, x, y );
            return static_cast<void>( window->onLButtonUp( nullptr, x, y ) );
        case 1: return static_cast<void>( window->onKeyPressed( nullptr, static_cast<char16_t>( u'a' + pick( 26 ) ) ) );
        case 2: return static_cast<void>( window->onMouseWheel( nullptr, pick( 3 ) - 1 ) );
        default: return static_cast<void>( window->onMouseMove( nullptr, x, y ) );
        }
    }
    // Draws what waits.
    void step( )
    {
        clock.advance( INTERVAL + 1 + pick( 100000 ) );
        TestDesktop::pump( );
        if( window->isAwake( ) ) window->onTimer( nullptr );
        wholly = window->isRenderPending( );
    }
    void expectAsWhole( int round )
    {
        const GString pixels = window->getLayerPixels( );
        const std::vector<IGInputHandler*> map = window->getInputMap( );
        GImageStack images;
        window->render( images );
        ASSERT_EQ( pixels.size( ), window->getLayerPixels( ).size( ) );
        for( size_t i = 0; i < pixels.size( ); ++i )
            ASSERT_EQ( pixels[i], window->getLayerPixels( )[i] )
                << "in round " << round << " of " << _history << " at " << i / 4 % WIDTH << ", " << i / 4 / WIDTH;
        _history.clear( );
        ASSERT_EQ( map, window->getInputMap( ) ) << "in round " << round;
    }

    GWindowNode* window = nullptr;
    bool wholly = false;
    std::string _history;

private:
    std::vector<GWString> _buddies;
    std::minstd_rand _random{ 20 };
};

TEST_P( RandomPartsTest, PartsGiveWhatAWholeDrawingGives )
{
    int parts = 0;
    for( int round = 0; round < 400; ++round )
    {
        clock.advance( 1 ); // No change comes at the very time of a drawing.
        const int changes = 1 + pick( 3 );
        const bool touched = pick( 4 ) == 0;
        _history += "\n" + std::to_string( round ) + ": ";
        for( int i = 0; i < changes; ++i ) pick( 3 ) ? newPicture( ) : changeValue( );
        if( touched ) useWindow( );
        step( );
        while( wholly ) step( );
        if( window->getPart( ) != GRect{ 0, 0, WIDTH, HEIGHT } ) ++parts;
        if( pick( 3 ) ) continue;
        // A field that grows asks for a drawing while it is drawn.
        step( );
        step( );
        ASSERT_NO_FATAL_FAILURE( expectAsWhole( round ) );
    }
    // Else nothing was tested.
    EXPECT_GT( parts, 100 );
}

INSTANTIATE_TEST_SUITE_P( Windows, RandomPartsTest,
                          testing::Values( Look{ "Plain", false, false, false }, Look{ "Clear", true, false, false },
                                           Look{ "Round", true, true, false }, Look{ "Breathing", false, true, true } ),
                          []( const auto& window ) { return window.param.name; } );
