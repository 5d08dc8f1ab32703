// The field with "$editing" at "full": caret, selection, clipboard, history, several lines.
#include "NodeTest.h"
#include "client/skin/nodes/GEditNode.h"
#include "client/skin/nodes/GNodeKeys.h"
#include "platform/GSystem.h"

#include <set>

namespace
{
std::set<int> held_;

class GEditFullTest : public NodeTest
{
protected:
    GEditFullTest( )
    {
        held_.clear( );
        GNodeKeys_setSource( []( int key ) { return held_.count( key ) > 0; } );
    }
    ~GEditFullTest( ) override { GNodeKeys_setSource( nullptr ); }

    GEditNode* edit( GAttributeList attributes = { }, int width = 200, int height = 40 )
    {
        attributes.insert( attributes.end( ), { { u"editing", u"full" },
                                                { u"font", u"14,,#FF0000FF,DejaVu Sans" },
                                                { u"framecolor", u"#00000000" },
                                                { u"selectioncolor", u"#0000FFFF" },
                                                { u"var", u"Name" } } );
        node = loadAs<GEditNode>( { u"Edit", attributes, {} } );
        update( );
        node->onKeyboardFocusChanged( true );
        size = { 0, 0, width, height };
        draw( width, height );
        return node;
    }
    void type( GWStringView text )
    {
        for( const char16_t character : text ) node->onKeyPressed( nullptr, character );
    }
    int key( int code, std::set<int> with = { } )
    {
        held_ = std::move( with );
        const int flags = node->onKeyDown( nullptr, code );
        held_.clear( );
        return flags;
    }
    // The text with "|" at the caret and "[" at the other end of the selection.
    GWString state( ) const
    {
        const GEditBuffer& buffer = node->getBuffer( );
        GWString text = buffer.getText( );
        const size_t other = buffer.getCaret( ) == buffer.getBegin( ) ? buffer.getEnd( ) : buffer.getBegin( );
        const bool before = other < buffer.getCaret( );
        text.insert( buffer.getCaret( ), u"|" );
        if( buffer.hasSelection( ) ) text.insert( other + ( before ? 0 : 1 ), u"[" );
        return text;
    }
    const Canvas& redraw( ) { return draw( size.right, size.bottom ); }
    // Where the caret is drawn: the first pure column of the text's colour; -1 for none.
    int caretX( )
    {
        const Canvas& drawn = redraw( );
        for( int x = 0; x < size.right; ++x )
        {
            int red = 0;
            for( int y = 0; y < size.bottom; ++y ) red += drawn.at( x, y ) == 0xFF0000FFu;
            if( red >= fontHeight( u"14,,,DejaVu Sans" ) - 1 ) return x;
        }
        return -1;
    }
    int blue( )
    {
        const Canvas& drawn = redraw( );
        int count = 0;
        for( int y = 0; y < size.bottom; ++y )
            for( int x = 0; x < size.right; ++x ) count += ( drawn.at( x, y ) >> 8 & 255 ) == 255;
        return count;
    }
    GEditNode* node = nullptr;
    GRect size;
};
} // namespace

TEST_F( GEditFullTest, ArrowsHomeAndEndMoveTheCaretAndTypingGoesOnThere )
{
    edit( );
    type( u"acd" );
    EXPECT_EQ( key( GKEY_LEFT ), GRESPONSE_RENDER );
    key( GKEY_LEFT );
    type( u"b" );
    EXPECT_EQ( state( ), u"ab|cd" );
    EXPECT_EQ( instance->get( u"Name" ), u"abcd" );
    key( GKEY_HOME );
    EXPECT_EQ( state( ), u"|abcd" );
    key( GKEY_LEFT );
    key( GKEY_END );
    key( GKEY_RIGHT );
    EXPECT_EQ( state( ), u"abcd|" );
    // Nothing that a single line has a use for.
    EXPECT_EQ( key( GKEY_UP ), GRESPONSE_NONE );
    EXPECT_EQ( key( GKEY_PAGE_DOWN ), GRESPONSE_NONE );
}

TEST_F( GEditFullTest, ControlMovesByWordsAndShiftSelects )
{
    edit( );
    type( u"one two three" );
    key( GKEY_LEFT, { GKEY_CONTROL } );
    EXPECT_EQ( state( ), u"one two |three" );
    key( GKEY_LEFT, { GKEY_CONTROL, GKEY_SHIFT } );
    EXPECT_EQ( state( ), u"one |two [three" );
    key( GKEY_LEFT );
    EXPECT_EQ( state( ), u"one |two three" );
    key( GKEY_END, { GKEY_SHIFT } );
    EXPECT_EQ( state( ), u"one [two three|" );
    key( GKEY_RIGHT );
    EXPECT_EQ( state( ), u"one two three|" );
    key( GKEY_HOME, { GKEY_CONTROL, GKEY_SHIFT } );
    type( u"x" );
    EXPECT_EQ( state( ), u"x|" );
}

TEST_F( GEditFullTest, DeleteAndBackspaceTakeAGraphemeAWordOrTheSelection )
{
    edit( );
    node->onPaste( nullptr, u"e\u0301\U0001F600 one two" );
    key( GKEY_HOME );
    key( GKEY_DELETE );
    EXPECT_EQ( state( ), u"|\U0001F600 one two" );
    key( GKEY_RIGHT );
    type( u"\b" );
    EXPECT_EQ( state( ), u"| one two" );
    key( GKEY_END );
    held_ = { GKEY_CONTROL };
    type( u"\b" );
    EXPECT_EQ( state( ), u" one |" );
    held_.clear( );
    type( u"\x7F" );
    EXPECT_EQ( state( ), u" |" );
    type( u"\x01\b" );
    EXPECT_EQ( state( ), u"|" );
    EXPECT_EQ( key( GKEY_DELETE ), GRESPONSE_RENDER );
}

TEST_F( GEditFullTest, TheClipboardTakesAndGivesTheSelection )
{
    edit( );
    type( u"one two\x01\x03" );
    EXPECT_EQ( GClipboardGetText( ), u"one two" );
    key( GKEY_END );
    key( GKEY_LEFT, { GKEY_CONTROL, GKEY_SHIFT } );
    type( u"\x18" );
    EXPECT_EQ( GClipboardGetText( ), u"two" );
    EXPECT_EQ( state( ), u"one |" );
    key( GKEY_HOME );
    node->onPaste( nullptr, u"<\t\r\n>" );
    EXPECT_EQ( state( ), u"<>|one " );
}

TEST_F( GEditFullTest, APasswordNeverLeavesItsField )
{
    GClipboardSetText( u"before" );
    edit( { { u"password", u"1" } } );
    type( u"secret\x01\x03\x18" );
    EXPECT_EQ( GClipboardGetText( ), u"before" );
    EXPECT_EQ( node->getText( ), u"secret" );
    type( u"\x1A" );
    EXPECT_EQ( node->getText( ), u"secret" );
    // A pair is one star to the caret.
    node->onPaste( nullptr, u"a\U0001F600" );
    key( GKEY_LEFT );
    EXPECT_EQ( state( ), u"a|\U0001F600" );
}

TEST_F( GEditFullTest, ControlZTakesBackAndControlYDoesAgain )
{
    edit( );
    type( u"one two" );
    type( u"\x1A" );
    EXPECT_EQ( state( ), u"one |" );
    EXPECT_EQ( instance->get( u"Name" ), u"one " );
    type( u"\x19" );
    EXPECT_EQ( state( ), u"one two|" );
}

TEST_F( GEditFullTest, TheMousePlacesTheCaretAndSelects )
{
    edit( );
    type( u"one two three" );
    EXPECT_EQ( node->onLButtonDown( nullptr, 0, 20 ), GRESPONSE_RENDER | GRESPONSE_CAPTURE );
    EXPECT_EQ( state( ), u"|one two three" );
    held_ = { GKEY_LBUTTON };
    EXPECT_EQ( node->onMouseMove( nullptr, 199, 20 ), GRESPONSE_RENDER );
    EXPECT_EQ( state( ), u"[one two three|" );
    EXPECT_EQ( node->onLButtonUp( nullptr, 199, 20 ), GRESPONSE_RELEASE );
    EXPECT_EQ( node->onMouseMove( nullptr, 5, 20 ), GRESPONSE_NONE );
    EXPECT_GT( blue( ), 500 );
    node->onLButtonDblClk( nullptr, 4, 20 );
    EXPECT_EQ( state( ), u"[one| two three" );
    held_ = { GKEY_SHIFT };
    node->onLButtonDown( nullptr, 199, 20 );
    EXPECT_EQ( state( ), u"[one two three|" );
    // A release that went elsewhere ends the drag.
    held_.clear( );
    EXPECT_EQ( node->onMouseMove( nullptr, 5, 20 ), GRESPONSE_RELEASE );
    EXPECT_EQ( node->onMouseMove( nullptr, 5, 20 ), GRESPONSE_NONE );
}

TEST_F( GEditFullTest, TabSelectsAllAndAClickDoesNot )
{
    edit( );
    type( u"name" );
    node->onKeyboardFocusChanged( false );
    EXPECT_EQ( state( ), u"name|" );
    node->onKeyboardFocusChanged( true );
    EXPECT_EQ( state( ), u"[name|" );
    node->onKeyboardFocusChanged( false );
    node->onLButtonDown( nullptr, 0, 20 );
    node->onKeyboardFocusChanged( true );
    EXPECT_EQ( state( ), u"|name" );
}

TEST_F( GEditFullTest, ALongLineScrollsWithItsCaret )
{
    edit( { }, 80, 30 );
    type( u"the quick brown fox jumps over" );
    EXPECT_GT( caretX( ), 60 );
    key( GKEY_HOME );
    EXPECT_LT( caretX( ), 4 );
    for( int i = 0; i < 12; ++i ) key( GKEY_RIGHT );
    const int within = caretX( );
    EXPECT_GT( within, 40 );
    EXPECT_LT( within, 80 );
    // Without the focus the beginning shows, and no caret.
    node->onKeyboardFocusChanged( false );
    EXPECT_EQ( caretX( ), -1 );
}

TEST_F( GEditFullTest, RightToLeftTextIsEditedAsItIsSeen )
{
    edit( );
    type( u"\u05D0\u05D1\u05D2" );
    const int end = caretX( );
    key( GKEY_RIGHT );
    EXPECT_GT( caretX( ), end );
    EXPECT_EQ( node->getBuffer( ).getCaret( ), 2u );
    EXPECT_GT( end, 100 );
}

TEST_F( GEditFullTest, ReturnRunsItsCommandAndWithShiftBreaksTheLine )
{
    edit( { { u"vscroll", u"1" }, { u"onenter", u"(enter)" } } );
    type( u"a\r" );
    EXPECT_EQ( node->getText( ), u"a" );
    EXPECT_EQ( engine->commands, std::vector<std::string>{ "(enter)" } );
    held_ = { GKEY_SHIFT };
    type( u"\rb" );
    EXPECT_EQ( node->getText( ), u"a\nb" );
    held_.clear( );
    edit( { { u"vscroll", u"1" } } );
    type( u"\r" );
    EXPECT_EQ( node->getText( ), u"a\nb\n" );
    edit( );
    EXPECT_EQ( node->onKeyPressed( nullptr, u'\r' ), GRESPONSE_NONE );
}

TEST_F( GEditFullTest, EscapeClearsUnlessItIsTheWindows )
{
    edit( );
    type( u"abc" );
    EXPECT_EQ( node->onKeyPressed( nullptr, 27 ), GRESPONSE_RENDER );
    EXPECT_EQ( node->getText( ), u"" );
    edit( { { u"onescape", u"(close)" } } );
    type( u"abc" );
    EXPECT_EQ( node->onKeyPressed( nullptr, 27 ), GRESPONSE_NONE );
    EXPECT_EQ( node->getText( ), u"abc" );
}

TEST_F( GEditFullTest, LinesAreMovedOverAtTheColumnWhereItBegan )
{
    edit( { { u"vscroll", u"1" } }, 200, 100 );
    node->onPaste( nullptr, u"long first line\nx\nlong third line" );
    key( GKEY_UP );
    EXPECT_EQ( state( ), u"long first line\nx|\nlong third line" );
    key( GKEY_UP );
    EXPECT_EQ( state( ), u"long first line|\nx\nlong third line" );
    key( GKEY_UP );
    EXPECT_EQ( state( ), u"|long first line\nx\nlong third line" );
    key( GKEY_PAGE_DOWN );
    EXPECT_EQ( state( ), u"long first line\nx\nlong third line|" );
    key( GKEY_HOME );
    EXPECT_EQ( state( ), u"long first line\nx\n|long third line" );
}

TEST_F( GEditFullTest, SeveralLinesScrollWithTheirCaretAndTheWheel )
{
    edit( { { u"vscroll", u"1" } }, 200, 50 );
    for( int i = 0; i < 20; ++i ) node->onPaste( nullptr, u"line\n" );
    const GString end = redraw( ).pixels;
    EXPECT_GE( caretX( ), 0 );
    EXPECT_EQ( node->onMouseWheel( nullptr, -1 ), GRESPONSE_NONE );
    EXPECT_EQ( node->onMouseWheel( nullptr, 1 ), GRESPONSE_RENDER );
    EXPECT_NE( redraw( ).pixels, end );
    EXPECT_EQ( caretX( ), -1 );
    // Typing brings it back.
    type( u"x" );
    EXPECT_GE( caretX( ), 0 );
}

TEST_F( GEditFullTest, ItGrowsWithItsLinesToALimit )
{
    edit( { { u"vscroll", u"1" }, { u"growlines", u"3" } }, 200, 40 );
    const auto least = [&]
    {
        int width = 0;
        int height = 0;
        node->calcMinSize( width, height );
        return height;
    };
    const int line = fontHeight( u"14,,,DejaVu Sans" );
    const int one = least( );
    type( u"some words that need more than a line" );
    EXPECT_EQ( least( ), one + line );
    node->onPaste( nullptr, u"\n\n\n\n\n\n\n" );
    EXPECT_EQ( least( ), one + 2 * line );
    node->setText( u"" );
    EXPECT_EQ( least( ), one );
    edit( { { u"growlines", u"3" } } );
    EXPECT_EQ( least( ), one );
}

TEST_F( GEditFullTest, AHeightThatWasAskedForTooEarlyIsAskedForAgainOnce )
{
    instance->set( u"Name", u"some words that need more than a line of this field" );
    edit( { { u"vscroll", u"1" }, { u"growlines", u"3" } }, 200, 40 );
    EXPECT_EQ( notifications( ), std::vector<int>{ 1 } );
    redraw( );
    EXPECT_TRUE( notifications( ).empty( ) );
}

TEST_F( GEditFullTest, MaxLengthHoldsTypingAndPastes )
{
    edit( { { u"maxlength", u"5" } } );
    node->onPaste( nullptr, GWString( 1000000, u'x' ) );
    type( u"y" );
    EXPECT_EQ( node->getText( ), u"xxxxx" );
    edit( );
    node->onPaste( nullptr, GWString( 1000000, u'x' ) );
    EXPECT_EQ( node->getText( ).size( ), 32768u );
    EXPECT_GT( caretX( ), 190 );
}

TEST_F( GEditFullTest, HalfACharacterIsNoText )
{
    edit( );
    type( u"\xDE00" );
    type( u"\xD83D" );
    type( u"a" );
    EXPECT_EQ( node->getText( ), u"a" );
    type( u"\U0001F600" );
    EXPECT_EQ( node->getText( ), u"a\U0001F600" );
}

TEST_F( GEditFullTest, UntouchableMovesButTakesNothing )
{
    instance->set( u"Name", u"kept" );
    edit( { { u"untouchable", u"1" } } );
    type( u"x\b\x18\x1A" );
    node->onPaste( nullptr, u"x" );
    EXPECT_EQ( key( GKEY_DELETE ), GRESPONSE_NONE );
    EXPECT_EQ( node->getText( ), u"kept" );
    EXPECT_EQ( key( GKEY_HOME ), GRESPONSE_RENDER );
}

TEST_F( GEditFullTest, AnUnchangedTextIsDrawnFromWhatWasMade )
{
    edit( );
    type( u"abc" );
    const GString first = redraw( ).pixels;
    EXPECT_EQ( redraw( ).pixels, first );
}
