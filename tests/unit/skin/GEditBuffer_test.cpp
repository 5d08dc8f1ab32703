#include "client/skin/nodes/GEditBuffer.h"

#include "base/GUtil.h"

#include <gtest/gtest.h>

namespace
{
class GEditBufferTest : public testing::Test
{
protected:
    GEditBufferTest( ) { buffer.keepHistory( true ); }
    void type( GWStringView text )
    {
        for( const char16_t character : text ) buffer.insert( GWString( 1, character ) );
    }
    std::string text( ) const { return GWideToUTF8( buffer.getText( ) ); }
    GEditBuffer buffer;
};
} // namespace

TEST_F( GEditBufferTest, TypingTakesTheSelectionsPlace )
{
    type( u"hello" );
    buffer.select( 1, 3 );
    EXPECT_EQ( buffer.getSelection( ), u"el" );
    type( u"X" );
    EXPECT_EQ( text( ), "hXlo" );
    EXPECT_EQ( buffer.getCaret( ), 2u );
    EXPECT_FALSE( buffer.hasSelection( ) );
}

TEST_F( GEditBufferTest, ASelectionCanRunBackwards )
{
    type( u"hello" );
    buffer.moveTo( 4, false );
    buffer.moveTo( 1, true );
    EXPECT_EQ( buffer.getBegin( ), 1u );
    EXPECT_EQ( buffer.getEnd( ), 4u );
    EXPECT_EQ( buffer.getCaret( ), 1u );
    EXPECT_TRUE( buffer.eraseSelection( ) );
    EXPECT_EQ( text( ), "ho" );
    EXPECT_FALSE( buffer.eraseSelection( ) );
}

TEST_F( GEditBufferTest, WhatWasTypedInARowIsOneStepBack )
{
    type( u"one" );
    type( u" " );
    type( u"two" );
    EXPECT_TRUE( buffer.undo( ) );
    EXPECT_EQ( text( ), "one " );
    buffer.undo( );
    EXPECT_EQ( text( ), "one" );
    buffer.redo( );
    EXPECT_EQ( text( ), "one " );
    buffer.undo( );
    buffer.undo( );
    EXPECT_EQ( text( ), "" );
    EXPECT_FALSE( buffer.undo( ) );
    // Typing anew ends what could be done again.
    type( u"x" );
    EXPECT_FALSE( buffer.redo( ) );
}

TEST_F( GEditBufferTest, ATextFromOutsideHasNoHistory )
{
    type( u"secret" );
    buffer.setText( u"other" );
    EXPECT_EQ( buffer.getCaret( ), 5u );
    EXPECT_FALSE( buffer.undo( ) );
    buffer.keepHistory( false );
    type( u"x" );
    EXPECT_FALSE( buffer.undo( ) );
    EXPECT_EQ( text( ), "otherx" );
}

TEST_F( GEditBufferTest, TheLimitNeverCutsAPair )
{
    buffer.setLimit( 4 );
    buffer.insert( u"abc\U0001F600" );
    EXPECT_EQ( text( ), "abc" );
    type( u"def" );
    EXPECT_EQ( text( ), "abcd" );
    buffer.select( 0, 3 );
    buffer.insert( u"12345" );
    EXPECT_EQ( text( ), "123d" );
    buffer.setLimit( 0 );
    buffer.insert( GWString( 100000, u'x' ) );
    EXPECT_EQ( buffer.getText( ).size( ), GEditBuffer::MAX_TEXT );
    buffer.setText( GWString( GEditBuffer::MAX_TEXT - 1, u'x' ) + u"\U0001F600" );
    EXPECT_EQ( buffer.getText( ).size( ), GEditBuffer::MAX_TEXT - 1 );
}

TEST_F( GEditBufferTest, TheHistoryIsBounded )
{
    buffer.setText( GWString( 30000, u'x' ) );
    for( int i = 0; i < 500; ++i ) buffer.insert( u" " );
    int steps = 0;
    while( buffer.undo( ) ) ++steps;
    EXPECT_GT( steps, 10 );
    EXPECT_LT( steps, 20 );
}
