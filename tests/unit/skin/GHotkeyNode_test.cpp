#include "client/skin/nodes/GHotkeyNode.h"

#include "NodeTest.h"

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
