// The keyboard reaches everything in the windows of the shipped skin that a click reaches, in an order that follows the eye; what has
// no words of its own says what it is for.
#include "CommandsTest.h"
#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GInputNode.h"
#include "client/skin/nodes/GNodeKeys.h"
#include "client/skin/nodes/GScrollBarNode.h"

#include <filesystem>

namespace
{
constexpr GWStringView BUDDY = u"ann-2@x";

// What a click would do nothing to, and the edges that size the window.
bool isNoControl( IGInputHandler* handler )
{
    if( dynamic_cast<GInputNode*>( handler ) ) return true;
    if( const auto* button = dynamic_cast<GButtonNode*>( handler ) ) return button->isDisabled( );
    if( const auto* bar = dynamic_cast<GScrollBarNode*>( handler ) ) return bar->isDisabled( );
    const auto* edit = dynamic_cast<GEditNode*>( handler );
    return edit && edit->isUntouchable( );
}

// A button that is a bare icon has a hint.
bool saysWhatItIsFor( const IGInputHandler* handler )
{
    const auto* button = dynamic_cast<const GButtonNode*>( handler );
    const bool isIcon = button && button->getAttribute( u"src" ).find( u"icon_" ) != GWString::npos;
    return !isIcon || !button->getHint( ).empty( );
}

// Whether the eye goes back from one part to the next: up without going on to another column, or to the left in a row.
bool isBack( const GRect& from, const GRect& to )
{
    if( to.bottom <= from.top ) return to.left < from.right;
    if( to.top >= from.bottom ) return false;
    return to.left < from.left;
}
} // namespace

class ShippedKeyboardTest : public CommandsTest
{
protected:
    // Pictures are found beside the template.
    ShippedKeyboardTest( ) : _folder( std::filesystem::current_path( ) )
    {
        std::filesystem::current_path( VELMORA_SOURCE_DIR "/skin" );
        for( const auto& [name, value] :
             { std::pair( u"Client_Status", u"Online" ), std::pair( u"Local_Buddy_List", u"ann-2@x, bob@other.org" ),
               std::pair( u"ann-2@x_Online", u"true" ), std::pair( u"ann-2@x_Audio_Enabled", u"1" ),
               std::pair( u"Contact_Request_List", u"alan@x, eve@x" ),
               std::pair( u"Contact_Request_Title", u"2 contact requests" ), std::pair( u"Audio_Capture_Online", u"1" ),
               std::pair( u"Talk_Again_Buddy", u"ann-2@x" ),
               std::pair( u"Available_Video_Capture_Devices", u"Camera, USB camera" ),
               std::pair( u"File_Send_List", u"send_1" ), std::pair( u"File_Choice", u"send_1" ),
               std::pair( u"Working_Hotkey", u"F9" ), std::pair( u"Thread_List", u"thread_1" ),
               std::pair( u"Thread_Choice", u"thread_1" ) } )
            instance.set( name, value );
        desktop.workArea = { 0, 0, 1920, 1080 };
        engine.reset( GSAFENEW( GTemplate, ( &instance, u"template.xml", makePlatform( ) ) ) );
    }
    ~ShippedKeyboardTest( ) override
    {
        engine.reset( );
        std::filesystem::current_path( _folder );
    }

    void show( GWindowNode& window )
    {
        TestDesktop::pump( );
        window.fadeIn( 0 );
        for( int i = 0; i < 2; ++i )
        {
            clock.advance( 1000000 );
            window.onNotification( GWATCH_UPDATE, clock.now( ) );
            clock.advance( 1000000 );
            GImageStack images;
            window.render( images );
        }
    }
    // What takes the pointer, with its place.
    static std::map<IGInputHandler*, GRect> places( const GWindowNode& window )
    {
        std::map<IGInputHandler*, GRect> found;
        const int width = window.getLayerFormat( ).width;
        const std::vector<IGInputHandler*>& map = window.getInputMap( );
        for( size_t i = 0; i < map.size( ); ++i )
        {
            if( !map[i] || map[i] == &window ) continue;
            const int x = static_cast<int>( i ) % width;
            const int y = static_cast<int>( i ) / width;
            const auto [at, fresh] = found.try_emplace( map[i], GRect{ x, y, x + 1, y + 1 } );
            at->second = GRectUnion( at->second, { x, y, x + 1, y + 1 } );
        }
        return found;
    }
    // What the tab key leads to, one after the other, until it comes round.
    static std::vector<IGInputHandler*> walk( GWindowNode& window )
    {
        std::vector<IGInputHandler*> stops;
        for( int i = 0; i < 100; ++i )
        {
            window.onKeyDown( window.getWin( ), GKEY_TAB );
            IGInputHandler* stop = window.getKeyFocus( );
            if( !stop || std::find( stops.begin( ), stops.end( ), stop ) != stops.end( ) ) break;
            stops.push_back( stop );
        }
        return stops;
    }
    void check( GWindowNode* window, const std::string& state = "" )
    {
        ASSERT_TRUE( window ) << state;
        show( *window );
        const std::string what = text( window->getPath( ) ) + " " + state;
        const std::map<IGInputHandler*, GRect> found = places( *window );
        const std::vector<IGInputHandler*> stops = walk( *window );
        EXPECT_FALSE( stops.empty( ) ) << what << " has no controls";
        for( const auto& [control, place] : found )
            EXPECT_TRUE( saysWhatItIsFor( control ) )
                << what << ": no words for a button at " << place.left << ", " << place.top;
        for( const auto& [control, place] : found )
            EXPECT_TRUE( isNoControl( control ) || std::find( stops.begin( ), stops.end( ), control ) != stops.end( ) )
                << what << ": the tab key never comes to "
                << text( dynamic_cast<GTemplateNode*>( control )->getPath( ) ) << " at " << place.left << ", "
                << place.top;
        int back = 0;
        std::string order;
        for( size_t i = 0; i < stops.size( ); ++i )
        {
            const GRect& from = found.at( stops[i] );
            back += isBack( from, found.at( stops[( i + 1 ) % stops.size( )] ) );
            order += " " + std::to_string( from.left ) + "," + std::to_string( from.top );
        }
        // Once, from the end to the beginning.
        EXPECT_LE( back, 1 ) << what << " goes" << order;
    }

private:
    std::filesystem::path _folder;
};

TEST_F( ShippedKeyboardTest, TheTabKeyComesToEveryControlOfEveryWindow )
{
    int windows = 0;
    for( GTemplateNode* at = engine->getRoot( ); at; at = at->getNext( engine->getRoot( ) ) )
        if( auto* window = dynamic_cast<GWindowNode*>( at ); window && window->getWin( ) )
        {
            ++windows;
            check( window );
        }
    EXPECT_GE( windows, 6 );
}

TEST_F( ShippedKeyboardTest, TheTabKeyComesToEveryControlOfEveryPageOfTheOptions )
{
    GTemplateNode* wizard = node( u"/skin/window_options/copy/border/inside/wizard" );
    ASSERT_TRUE( wizard );
    int pages = 0;
    for( GTemplateNode* page : wizard->getChildren( ) )
    {
        if( page->getAttribute( u"id" ).empty( ) ) continue;
        ++pages;
        const std::string id = text( page->getAttribute( u"id" ) );
        run( "(/skin/window_options/copy/border/inside/wizard?jump+target=" + id + ")" );
        check( windowNode( u"/skin/window_options" ), id );
    }
    EXPECT_GE( pages, 10 );
}

TEST_F( ShippedKeyboardTest, TheTabKeyComesToEveryControlOfACallInEachState )
{
    for( const GWStringView state : { u"ringing", u"calling", u"talking", u"declined", u"" } )
    {
        instance.set( GConcat( BUDDY, u"_Call_State" ), state );
        run( "(/skin/foreach_call/window_" + text( BUDDY ) + "?open)" );
        check( windowNode( GConcat( u"/skin/foreach_call/window_", BUDDY ) ), text( state ) );
    }
}

TEST_F( ShippedKeyboardTest, TheTabKeyComesToEveryControlOfAChat )
{
    run( "(/skin/foreach_chat/window_" + text( BUDDY ) + "?open)" );
    check( windowNode( GConcat( u"/skin/foreach_chat/window_", BUDDY ) ) );
}

TEST_F( ShippedKeyboardTest, WindowsBeginWithWhatTheyAreForAndEndWithTheirClosing )
{
    const std::pair<const char16_t*, const char16_t*> firsts[] = {
        { u"login", u"Local_User_GUID" }, { u"new", u"Local_Username" }, { u"addbuddy", u"Add_Buddy_GUID" } };
    for( const auto& [id, value] : firsts )
    {
        GWindowNode* window = windowNode( GConcat( u"/skin/window_", id ) );
        show( *window );
        auto* edit = dynamic_cast<GEditNode*>( window->getKeyFocus( ) );
        ASSERT_TRUE( edit ) << text( id );
        EXPECT_EQ( edit->getAttribute( u"var" ), value );
        // Backwards from the first comes the last.
        GNodeKeys_setSource( []( int key ) { return key == GKEY_SHIFT; } );
        window->onKeyDown( window->getWin( ), GKEY_TAB );
        GNodeKeys_setSource( nullptr );
        auto* last = dynamic_cast<GButtonNode*>( window->getKeyFocus( ) );
        ASSERT_TRUE( last ) << text( id );
        EXPECT_EQ( last->getAttribute( u"command" ), u"($windowpath?close)" );
    }
}
