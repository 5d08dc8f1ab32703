#include "client/skin/GAttributeStack.h"

#include "SkinTest.h"
#include "client/skin/GAttributeState.h"
#include "support/CountAllocations.h"

namespace
{
class GAttributeStackTest : public SkinTest
{
protected:
    std::string eval( GWStringView expression ) { return text( stack.eval( expression ) ); }
    std::string get( GWStringView name ) { return text( stack.get( name ) ); }

    TestEngine engine;
    GAttributeStack stack{ &instance, engine.notify };
};
} // namespace

// ---- Names and scopes.

TEST_F( GAttributeStackTest, AnEmptyNameIsAnEmptyText )
{
    // The blackboard would warn of an empty name.
    EXPECT_EQ( get( u"" ), "" );
}

TEST_F( GAttributeStackTest, AnInnerScopeHidesOuterOnesAndTheBlackboardEvenWhenEmpty )
{
    instance.set( u"a", u"blackboard" );
    EXPECT_EQ( get( u"a" ), "blackboard" );
    stack.set( u"a", u"outer" );
    EXPECT_EQ( get( u"a" ), "outer" );
    stack.push( );
    EXPECT_EQ( get( u"a" ), "outer" );
    stack.set( u"a", u"" );
    EXPECT_EQ( get( u"a" ), "" );
    stack.pop( );
    EXPECT_EQ( get( u"a" ), "outer" );
}

TEST_F( GAttributeStackTest, SettingAgainInOneScopeReplaces )
{
    stack.push( );
    stack.set( u"a", 5 );
    stack.set( u"a", -7 );
    EXPECT_EQ( get( u"a" ), "-7" );
    stack.set( u"a", true );
    EXPECT_EQ( get( u"a" ), "true" );
    stack.set( u"a", false );
    EXPECT_EQ( get( u"a" ), "false" );
    stack.pop( );
    EXPECT_EQ( get( u"a" ), "" );
}

TEST_F( GAttributeStackTest, SetNeverWritesToTheBlackboard )
{
    stack.set( u"a", u"scope" );
    EXPECT_FALSE( instance.isSet( u"a" ) );
}

TEST_F( GAttributeStackTest, LookupIsExactInScopesAndFoldedOnTheBlackboard )
{
    instance.set( u"Name", u"board" );
    stack.set( u"Name", u"scope" );
    EXPECT_EQ( get( u"Name" ), "scope" );
    EXPECT_EQ( get( u"name" ), "board" );
}

TEST_F( GAttributeStackTest, ALaterAttributeSeesTheEarlierOnes )
{
    stack.set( u"a", u"outer" );
    stack.push( u"/skin/x", { { u"a", u"1" }, { u"b", u"$a" } } );
    EXPECT_EQ( get( u"b" ), "1" );
    EXPECT_EQ( get( u"path" ), "/skin/x" );
    stack.pop( );
    stack.push( u"/skin/x", { { u"b", u"$a" }, { u"a", u"1" } } );
    EXPECT_EQ( get( u"b" ), "outer" );
    stack.pop( );
}

TEST_F( GAttributeStackTest, ListenersAreInheritedUntilAnotherIsPushed )
{
    TestEngine other;
    stack.push( );
    EXPECT_EQ( stack.getListener( ), engine.notify );
    stack.push( other.notify );
    stack.push( u"/x", { } );
    EXPECT_EQ( stack.getListener( ), other.notify );
    stack.pop( );
    stack.pop( );
    EXPECT_EQ( stack.getListener( ), engine.notify );
}

TEST_F( GAttributeStackTest, TwoStacksAtOnceDoNotMeet )
{
    GAttributeStack other( &instance, engine.notify );
    stack.set( u"a", u"one" );
    other.set( u"a", u"two" );
    EXPECT_EQ( get( u"a" ), "one" );
    EXPECT_EQ( text( other.get( u"a" ) ), "two" );
}

TEST_F( GAttributeStackTest, AFreshStackRemembersNothing )
{
    {
        GAttributeStack other( &instance, engine.notify );
        other.set( u"left", u"behind" );
        other.push( );
        other.set( u"left", u"twice" );
    }
    GAttributeStack other( &instance, engine.notify );
    EXPECT_EQ( text( other.get( u"left" ) ), "" );
}

TEST_F( GAttributeStackTest, PoppingAndSettingWithoutAScopeAbort )
{
    stack.pop( );
    EXPECT_DEATH( stack.pop( ), "!_stateStack.empty\\( \\)" );
    EXPECT_DEATH( stack.set( u"a", u"b" ), "!_stateStack.empty\\( \\)" );
    EXPECT_DEATH( GAttributeStack( nullptr, engine.notify ), "instance && notifyListener" );
    EXPECT_DEATH( GAttributeStack( &instance, nullptr ), "instance && notifyListener" );
    EXPECT_DEATH( stack.push( GNotifyHandle( nullptr ) ), "Precondition failed, aborting. \\(listener\\)" );
}

// ---- Expressions.

TEST_F( GAttributeStackTest, ExamplesOfExpressions )
{
    stack.set( u"a", u"x" );
    stack.set( u"b", u"a" );
    EXPECT_EQ( eval( u"$a" ), "x" );
    EXPECT_EQ( eval( u"$A" ), "x" );
    EXPECT_EQ( eval( u"p$a" ), "px" );
    EXPECT_EQ( eval( u"{$a}.q" ), "x.q" );
    EXPECT_EQ( eval( u"$a.q" ), "" );
    EXPECT_EQ( eval( u"${$b}" ), "x" );
    EXPECT_EQ( eval( u"$c" ), "" );
    EXPECT_EQ( eval( u"{$c}" ), "" );
    EXPECT_EQ( eval( u"5$" ), "5$" );
    EXPECT_EQ( eval( u"$" ), "$" );
    EXPECT_EQ( eval( u"{z}$a" ), "z}" );
    EXPECT_EQ( eval( u"" ), "" );
    EXPECT_EQ( eval( u"{no dollar}" ), "{no dollar}" );
}

TEST_F( GAttributeStackTest, IndirectionReachesTheBlackboard )
{
    instance.set( u"Local_Username", u"bob" );
    stack.set( u"watch", u"Local_Username" );
    EXPECT_EQ( eval( u"${$watch}" ), "bob" );
}

TEST_F( GAttributeStackTest, ValuesWithNamesAreExpandedOnceARound )
{
    instance.set( u"outer", u"<$inner>" );
    instance.set( u"inner", u"deep" );
    EXPECT_EQ( eval( u"$outer" ), "<deep>" );
}

TEST_F( GAttributeStackTest, ASelfReferenceThatChangesNothingStands )
{
    stack.set( u"a", u"$a" );
    EXPECT_EQ( eval( u"$a" ), "$a" );
}

TEST_F( GAttributeStackTest, ASelfReferenceThatGrowsStopsAtALimit )
{
    TestLog::expect( "WARNING Expression '$grow' of '' does not end, ignoring." );
    TestLog::expect( "WARNING Expression '$double' of '' does not end, ignoring." );
    TestLog::expect( "WARNING Expression '$ping' of '' does not end, ignoring." );
    stack.set( u"grow", u"x$grow" );
    stack.set( u"double", u"$double$double" );
    stack.set( u"ping", u"$pong" );
    stack.set( u"pong", u"$ping" );
    EXPECT_LE( stack.eval( u"$grow" ).size( ), GAttributeState::MAX_VALUE_LENGTH );
    EXPECT_LE( stack.eval( u"$double" ).size( ), GAttributeState::MAX_VALUE_LENGTH );
    stack.eval( u"$ping" );
}

TEST_F( GAttributeStackTest, ATextThatGrowsByLongStepsStopsEarly )
{
    TestLog::expect( "WARNING Expression '$grow' of '' does not end, ignoring." );
    stack.set( u"grow", GWString( 600, u'x' ) + u"$grow" );
    EXPECT_LE( stack.eval( u"$grow" ).size( ), 10000u ) << "every round parses the whole text again";
}

TEST_F( GAttributeStackTest, AnExpressionThatDoesNotEndIsWarnedOfOnceWithItsPath )
{
    TestLog::expect( "WARNING Expression '$grow' of '/skin/a' does not end, ignoring." );
    for( int i = 0; i < 3; ++i )
    {
        stack.push( u"/skin/a", { } );
        stack.set( u"grow", u"x$grow" );
        stack.eval( u"$grow" );
        stack.pop( );
    }
    EXPECT_EQ( TestLog::count( "does not end" ), 1 );
    GAttributeStack::forgetWarnings( );
    stack.set( u"grow", u"x$grow" );
    stack.push( u"/skin/a", { { u"text", u"$grow" } } );
    EXPECT_EQ( TestLog::count( "does not end" ), 2 );
    stack.pop( );
}

TEST_F( GAttributeStackTest, AHugeValueIsNotMultiplied )
{
    TestLog::expect( "does not end, ignoring." );
    instance.set( u"huge", GString( 3 << 20, 'h' ) );
    EXPECT_EQ( stack.eval( u"$huge" ).size( ), 3u << 20 );
    EXPECT_EQ( eval( u"$huge$huge" ), "$huge$huge" );
}

TEST_F( GAttributeStackTest, KeptTextsDoNotGrowWithoutBound )
{
    GExpressionTable table;
    for( int i = 0; i < 40000; ++i ) table.parse( GConcat( u"$name", i ) );
    EXPECT_LE( table.getExpressionCount( ), GExpressionTable::MAX_EXPRESSIONS );
    EXPECT_LE( table.getSymbolCount( ), GExpressionTable::MAX_SYMBOLS );
}

TEST_F( GAttributeStackTest, KeptCalculationsDoNotGrowWithoutBound )
{
    GExpressionTable table;
    int32_t value = 0;
    for( int i = 0; i < 20000; ++i )
    {
        ASSERT_TRUE( table.calc( GConcat( u"1 + ", i ), value ) );
        ASSERT_EQ( value, i + 1 );
    }
    EXPECT_LE( table.getCalculationCount( ), GExpressionTable::MAX_CALCULATIONS );
    const size_t kept = table.getCalculationCount( );
    EXPECT_TRUE( table.calc( u"7" + GWString( 2000, u' ' ), value ) );
    EXPECT_EQ( table.getCalculationCount( ), kept ) << "long texts are not kept";
}

TEST_F( GAttributeStackTest, WhatWasCalculatedOnceTakesNoMemory )
{
    stack.set( u"width", 640 );
    EXPECT_EQ( stack.calc( u"20 + ( $width - 368 ) / 2" ), 156 );
    EXPECT_FALSE( stack.test( u"no number" ) );
    EXPECT_EQ( countAllocations(
                   [&]
                   {
                       stack.calc( u"20 + ( $width - 368 ) / 2" );
                       stack.test( u"no number" );
                   } ),
               0 );
    EXPECT_EQ( stack.calc( u"20 + ( $width - 368 ) / 2" ), 156 );
    EXPECT_FALSE( stack.test( u"no number" ) );
}

TEST_F( GAttributeStackTest, NamesBeyondTheTableAreStillFound )
{
    for( int i = 0; i < 20000; ++i ) stack.eval( GConcat( u"$flood", i ) );
    stack.set( u"late", u"found" );
    EXPECT_EQ( eval( u"-$late-" ), "-found-" );
    const GWString longText( 2000, u'x' );
    EXPECT_EQ( eval( longText + u"$late" ), text( longText ) + "found" );
}

TEST_F( GAttributeStackTest, AChangeOnTheBlackboardShowsAtOnce )
{
    EXPECT_EQ( eval( u"-$changing-" ), "--" );
    instance.set( u"Changing", u"one" );
    EXPECT_EQ( eval( u"-$changing-" ), "-one-" );
    instance.open( u"Changing" ) = "two";
    instance.close( u"Changing", false );
    EXPECT_EQ( eval( u"-$changing-" ), "-two-" );
    instance.clear( u"Chang*" );
    EXPECT_EQ( eval( u"-$changing-" ), "--" );
}

TEST_F( GAttributeStackTest, TwoBlackboardsAreNotMistakenForEachOther )
{
    instance.set( u"whose", u"first" );
    EXPECT_EQ( eval( u"$whose" ), "first" );
    const GWString path = skinTestPath( "other.ini" );
    const std::unique_ptr<GInstance> board( open( path ) );
    GAttributeStack other( board.get( ), engine.notify );
    EXPECT_EQ( text( other.eval( u"$whose" ) ), "" );
    board->set( u"whose", u"second" );
    EXPECT_EQ( text( other.eval( u"$whose" ) ), "second" );
    EXPECT_EQ( eval( u"$whose" ), "first" );
    std::remove( text( path ).c_str( ) );
}

TEST_F( GAttributeStackTest, AnotherTextAtTheSameAddressIsAnotherExpression )
{
    stack.set( u"a", u"1" );
    stack.set( u"b", u"2" );
    GWString expression = u"$a";
    EXPECT_EQ( eval( expression ), "1" );
    expression[1] = u'b';
    EXPECT_EQ( eval( expression ), "2" );
    EXPECT_EQ( text( stack.get( u"b" ) ), "2" );
}

// ---- Numbers and tests.

TEST_F( GAttributeStackTest, CalcReadsTheFrontOfTheValue )
{
    stack.set( u"width", u"12px" );
    EXPECT_EQ( stack.calc( u"$width" ), 12 );
    EXPECT_EQ( stack.calc( u"" ), 0 );
    EXPECT_EQ( stack.calc( u"abc" ), 0 );
    EXPECT_EQ( stack.calc( u"$width*2" ), 12 );
    EXPECT_EQ( stack.calc( u"{$screen}+5" ), 5 );
}

TEST_F( GAttributeStackTest, TestTakesTrueInAnyCaseAndNumbersOtherThanZero )
{
    for( const GWStringView yes : { u"true", u"TRUE", u"True", u"1", u"3-2", u"5 apples", u"-1" } )
        EXPECT_TRUE( stack.test( yes ) ) << text( GWString( yes ) );
    for( const GWStringView no : { u"false", u"", u"0", u"2-2", u"yes", u"0 or 1" } )
        EXPECT_FALSE( stack.test( no ) ) << text( GWString( no ) );
}

TEST_F( GAttributeStackTest, ReadSaysWhetherAMemberChanged )
{
    GWString word;
    int number = 0;
    bool flag = false;
    stack.set( u"word", u"hello" );
    stack.set( u"number", 9 );
    stack.set( u"flag", true );
    EXPECT_TRUE( stack.read( u"$word", word ) );
    EXPECT_FALSE( stack.read( u"$word", word ) );
    EXPECT_EQ( text( word ), "hello" );
    EXPECT_TRUE( stack.read( u"$number", number ) );
    EXPECT_FALSE( stack.read( u"$number", number ) );
    EXPECT_TRUE( stack.read( u"$flag", flag ) );
    EXPECT_FALSE( stack.read( u"$flag", flag ) );
}

TEST_F( GAttributeStackTest, AnUnchangedPassAllocatesNothing )
{
    const GAttributeList attributes = { { u"watch", u"Local_Status_Of_The_Program" },
                                        { u"text", u"prefix and more {$watch}_Suffix" },
                                        { u"value", u"${$watch}" } };
    const GWString path = u"/skin/window_options/row/cell/text";
    instance.set( u"Local_Status_Of_The_Program", u"a text that is longer than a short one" );
    GWString word;
    int number = 0;
    const auto pass = [&]
    {
        GAttributeStack fresh( &instance, engine.notify );
        fresh.push( path, attributes );
        fresh.read( u"$value", word );
        fresh.read( u"$text", word );
        fresh.read( u"$number", number );
        fresh.pop( );
    };
    pass( );
    pass( );
    EXPECT_EQ( countAllocations( pass ), 0 );
}
