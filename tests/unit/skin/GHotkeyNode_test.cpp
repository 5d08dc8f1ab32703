#include "client/skin/nodes/GHotkeyNode.h"

#include "NodeTest.h"
#include "client/skin/nodes/GNodeKeys.h"
#include "client/skin/nodes/GWindowNode.h"

namespace
{
class ScriptedHotkey : public GHotkeyNode
{
public:
    using GHotkeyNode::GHotkeyNode;
    GWString held;

protected:
    GWString _getKeysPressed( ) const override { return held; }
};
} // namespace

class GHotkeyNodeTest : public NodeTest
{
protected:
    GHotkeyNodeTest( )
    {
        load( { u"holder", { { u"var", u"Key" }, { u"refresh", u"$Refresh" } }, {} } );
        node = GSAFENEW( ScriptedHotkey, ( instance.get( ), engine.get( ), find( u"holder" ) ) );
        find( u"holder" )->appendChild( node );
        update( );
        node->onKeyboardFocusChanged( true );
    }
    int down( const char16_t* keys )
    {
        node->held = keys;
        return node->onKeyDown( nullptr, 0 );
    }
    int up( const char16_t* keys )
    {
        node->held = keys;
        return node->onKeyUp( nullptr, 0 );
    }
    GWString value( ) { return instance->get( u"Key" ); }
    ScriptedHotkey* node;
};

TEST_F( GHotkeyNodeTest, GrowsWhileKeysAreAdded )
{
    EXPECT_EQ( down( u"CONTROL" ), GRESPONSE_RENDER );
    EXPECT_EQ( value( ), u"CONTROL" );
    down( u"CONTROL+SHIFT" );
    down( u"CONTROL+SHIFT+A" );
    EXPECT_EQ( value( ), u"CONTROL+SHIFT+A" );
    EXPECT_TRUE( node->wantsKeyboardFocus( ) );
}

TEST_F( GHotkeyNodeTest, TheFirstReleaseFreezesUntilAllKeysAreUp )
{
    down( u"CONTROL" );
    down( u"CONTROL+A" );
    EXPECT_EQ( up( u"CONTROL" ), GRESPONSE_NONE );
    down( u"CONTROL+B" );
    down( u"CONTROL+SHIFT+B" );
    EXPECT_EQ( value( ), u"CONTROL+A" );
    up( u"" );
    EXPECT_EQ( value( ), u"CONTROL+A" );
    down( u"F5" );
    EXPECT_EQ( value( ), u"F5" );
}

TEST_F( GHotkeyNodeTest, TakesNothingWithoutFocus )
{
    node->onKeyboardFocusChanged( false );
    EXPECT_EQ( down( u"A" ), GRESPONSE_NONE );
    EXPECT_TRUE( value( ).empty( ) );
}

TEST_F( GHotkeyNodeTest, ReadsTheVariableWhenAskedTo )
{
    instance->set( u"Key", u"F9" );
    update( );
    EXPECT_TRUE( node->getText( ).empty( ) );
    instance->set( u"Refresh", u"true" );
    update( );
    EXPECT_EQ( node->getText( ), u"F9" );
}

TEST_F( GHotkeyNodeTest, DrawsAFrameAndItsText )
{
    down( u"A" );
    EXPECT_EQ( draw( 40, 24 ).at( 0, 0 ), 0x000000FFu );
    EXPECT_EQ( canvas->owned( node ), ( GRect{ 0, 0, 40, 24 } ) );
}

// ---- Full editing: keys that lead out of the field.

class FullHotkeyTest : public NodeTest
{
protected:
    FullHotkeyTest( )
    {
        instance->set( u"Key", u"F9" );
        load( { u"Window",
                { { u"id", u"w" }, { u"width", u"60" }, { u"height", u"40" }, { u"onescape", u"(closed)" } },
                { { u"Row",
                    { },
                    { { u"Cell", { { u"id", u"key" }, { u"fixedwidth", u"30" } }, {} },
                      { u"Cell",
                        { { u"fixedwidth", u"20" } },
                        { { u"Button", { { u"focusable", u"1" }, { u"text", u"x" } }, {} } } } } } } } );
        window = findAs<GWindowNode>( u"window_w" );
        node = GSAFENEW( ScriptedHotkey, ( instance.get( ), engine.get( ), find( u"window_w/row/cell_key" ) ) );
        node->setAttribute( u"var", u"Key" );
        node->setAttribute( u"editing", u"full" );
        find( u"window_w/row/cell_key" )->appendChild( node );
        update( );
        press( GKEY_TAB, u"TAB" );
        release( );
    }
    void press( int key, const char16_t* held )
    {
        node->held = held;
        window->onKeyDown( window->getWin( ), key );
    }
    void release( const char16_t* held = u"" )
    {
        node->held = held;
        window->onKeyUp( window->getWin( ), 0 );
    }
    void type( char16_t character ) { window->onKeyPressed( window->getWin( ), character ); }
    bool hasFocus( ) const { return window->getKeyFocus( ) == node; }
    GWString value( ) { return instance->get( u"Key" ); }

    GWindowNode* window = nullptr;
    ScriptedHotkey* node = nullptr;
};

TEST_F( FullHotkeyTest, TheTabKeyMovesOn )
{
    ASSERT_TRUE( hasFocus( ) );
    EXPECT_EQ( value( ), u"F9" ) << "the key that led here is none of the combination";
    press( GKEY_TAB, u"TAB" );
    EXPECT_FALSE( hasFocus( ) );
    EXPECT_TRUE( window->getKeyFocus( ) );
    EXPECT_EQ( value( ), u"F9" );
}

TEST_F( FullHotkeyTest, ShiftAndTabMoveBackAndTakeNothing )
{
    press( GKEY_SHIFT, u"SHIFT" );
    EXPECT_EQ( value( ), u"SHIFT" );
    press( GKEY_TAB, u"SHIFT+TAB" );
    EXPECT_FALSE( hasFocus( ) );
    EXPECT_EQ( value( ), u"F9" );
}

TEST_F( FullHotkeyTest, KeysThatLedHereAreNoPartOfACombination )
{
    node->onKeyboardFocusChanged( false );
    node->held = u"SHIFT+TAB";
    node->onKeyboardFocusChanged( true );
    release( u"SHIFT" );
    EXPECT_EQ( value( ), u"F9" );
    release( );
    press( 65, u"A" );
    EXPECT_EQ( value( ), u"A" );
}

TEST_F( FullHotkeyTest, EscapeLeavesTheFieldAndKeepsTheWindow )
{
    press( GKEY_ESCAPE, u"ESCAPE" );
    type( GKEY_ESCAPE );
    EXPECT_FALSE( hasFocus( ) );
    EXPECT_EQ( value( ), u"F9" );
    EXPECT_TRUE( engine->commands.empty( ) );
    type( GKEY_ESCAPE );
    EXPECT_EQ( engine->commands, std::vector<std::string>{ "(closed)" } );
}

TEST_F( FullHotkeyTest, BackspaceEmptiesIt )
{
    press( GKEY_BACKSPACE, u"BACKSPACE" );
    type( GKEY_BACKSPACE );
    EXPECT_EQ( value( ), u"" );
    EXPECT_EQ( node->getText( ), u"" );
    release( );
    EXPECT_TRUE( hasFocus( ) );
    press( 65, u"A" );
    EXPECT_EQ( value( ), u"A" );
}

TEST_F( FullHotkeyTest, WithOthersTheseKeysAreTaken )
{
    for( const auto& [key, with] :
         { std::pair( int{ GKEY_TAB }, u"CONTROL+TAB" ), std::pair( int{ GKEY_ESCAPE }, u"CONTROL+ESCAPE" ),
           std::pair( int{ GKEY_BACKSPACE }, u"SHIFT+BACKSPACE" ) } )
    {
        press( GKEY_CONTROL, u"CONTROL" );
        press( key, with );
        type( GKEY_ESCAPE );
        EXPECT_EQ( value( ), with );
        EXPECT_TRUE( hasFocus( ) );
        release( );
    }
    EXPECT_TRUE( engine->commands.empty( ) );
}

TEST_F( GHotkeyNodeTest, WithoutFullEditingEveryKeyIsTaken )
{
    for( const char16_t* key : { u"TAB", u"ESCAPE", u"BACKSPACE" } )
    {
        node->held = key;
        EXPECT_EQ( node->onKeyDown( nullptr, key[0] == u'T'   ? GKEY_TAB
                                             : key[0] == u'E' ? GKEY_ESCAPE
                                                              : GKEY_BACKSPACE ),
                   GRESPONSE_RENDER );
        EXPECT_EQ( value( ), key );
        up( u"" );
    }
}
