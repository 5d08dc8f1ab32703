#include "client/skin/GEvaluator.h"

#include "base/GUtil.h"
#include "client/skin/GCalculator.h"

#include <gtest/gtest.h>

#include <csignal>

namespace
{
// The parts of a text as "literal" and "<name>".
std::string parts( const std::string& text )
{
    GExpression expression;
    std::string out;
    if( !GEvaluator( ).parse( GUTF8ToWide( text ), expression ) ) return "(refused)";
    for( const GExpressionPart& part : expression )
        out += part.isName ? "<" + GWideToUTF8( part.text ) + ">" : GWideToUTF8( part.text );
    return out;
}

std::string calc( const std::string& text )
{
    int32_t value = 0;
    return GCalculator( ).calc( GUTF8ToWide( text ), value ) ? std::to_string( value ) : "none";
}
} // namespace

TEST( GEvaluator, NamesAreLowerCasedAndTakeDotsUnderscoresAndAts )
{
    EXPECT_EQ( parts( "p$A" ), "p<a>" );
    EXPECT_EQ( parts( "$a.q" ), "<a.q>" );
    EXPECT_EQ( parts( "$Bob@Home_Status!" ), "<bob@home_status>!" );
    EXPECT_EQ( parts( "$1a" ), "<1a>" );
    EXPECT_EQ( parts( "$_a" ), "$_a" );
}

TEST( GEvaluator, BracesEndAName )
{
    EXPECT_EQ( parts( "{$a}.q" ), "<a>.q" );
    EXPECT_EQ( parts( "{$first}_suffix" ), "<first>_suffix" );
    EXPECT_EQ( parts( "${$b}" ), "$<b>" );
    EXPECT_EQ( parts( "{{$a}}$b" ), "<a><b>" );
}

TEST( GEvaluator, ADollarThatStartsNoNameIsText )
{
    EXPECT_EQ( parts( "$" ), "$" );
    EXPECT_EQ( parts( "5$" ), "5$" );
    EXPECT_EQ( parts( "$$a" ), "$<a>" );
    EXPECT_EQ( parts( "$ $a" ), "$ <a>" );
}

TEST( GEvaluator, WhatWasPushedBeforeAFailureStands )
{
    EXPECT_EQ( parts( "{z}$a" ), "z}" );
    EXPECT_EQ( parts( "a{b$c" ), "b" );
    EXPECT_EQ( parts( "{$a" ), "<a>" );
    EXPECT_EQ( parts( "$a{$" ), "$" );
    EXPECT_EQ( parts( "{" ), "" );
    EXPECT_EQ( parts( "{}" ), "}" );
    EXPECT_EQ( parts( "" ), "" );
}

TEST( GEvaluator, ACloseBraceIsAnOrdinaryLiteral )
{
    EXPECT_EQ( parts( "a}b$c" ), "a}b<c>" );
}

TEST( GEvaluator, LettersBeyondAsciiEndAName )
{
    EXPECT_EQ( parts( "$a\xC3\xA9" ), "<a>\xC3\xA9" );
    EXPECT_EQ( parts( "$\xC5\x81" ), "$\xC5\x81" );
}

TEST( GEvaluator, DeepNestingIsRefused )
{
    EXPECT_EQ( parts( std::string( 512, '{' ) + "$a" + std::string( 512, '}' ) ), "<a>" );
    EXPECT_EQ( parts( std::string( 513, '{' ) + "$a" ), "(refused)" );
}

TEST( GCalculator, AppliesOperatorsFromTheLeftAndByPrecedence )
{
    EXPECT_EQ( calc( "7-2-3" ), "2" );
    EXPECT_EQ( calc( "2+3*4" ), "14" );
    EXPECT_EQ( calc( "100/5/2" ), "10" );
    EXPECT_EQ( calc( "-(2+3)*4" ), "-20" );
    EXPECT_EQ( calc( "+-+5" ), "-5" );
    EXPECT_EQ( calc( "2--3" ), "5" );
}

TEST( GCalculator, DivisionTruncatesTowardZero )
{
    EXPECT_EQ( calc( "7/2" ), "3" );
    EXPECT_EQ( calc( "-7/2" ), "-3" );
    EXPECT_EQ( calc( "7/-2" ), "-3" );
}

TEST( GCalculator, StopsWhereNothingMatches )
{
    EXPECT_EQ( calc( "12px" ), "12" );
    EXPECT_EQ( calc( "2 + " ), "2" );
    EXPECT_EQ( calc( "0 or 1" ), "0" );
    EXPECT_EQ( calc( "abc" ), "none" );
    EXPECT_EQ( calc( "" ), "none" );
    EXPECT_EQ( calc( ")" ), "none" );
}

TEST( GCalculator, WhatWasPushedBeforeAFailureStands )
{
    EXPECT_EQ( calc( "2+(3" ), "3" );
    EXPECT_EQ( calc( "(5" ), "5" );
}

TEST( GCalculator, WhiteSpaceIsSkippedBetweenTokensOnly )
{
    EXPECT_EQ( calc( " \t2\n *\r 3 " ), "6" );
    EXPECT_EQ( calc( "1 2" ), "1" );
}

TEST( GCalculator, OverflowWrapsAndLiteralsSaturate )
{
    EXPECT_EQ( calc( "2147483647+1" ), "-2147483648" );
    EXPECT_EQ( calc( "99999999999999999999" ), "2147483647" );
    EXPECT_EQ( calc( "65536*65536" ), "0" );
    EXPECT_EQ( calc( "(-2147483647-1)/-1" ), "-2147483648" );
    EXPECT_EQ( calc( "-(-2147483647-1)" ), "-2147483648" );
}

TEST( GCalculator, LongTextsAreReadToALimit )
{
    EXPECT_EQ( calc( std::string( 100000, '(' ) + "1" ), "none" );
    EXPECT_EQ( calc( std::string( 100000, '-' ) + "1" ), "none" );
    EXPECT_EQ( calc( "3+" + std::string( 100000, ' ' ) + "1" ), "3" );
}

TEST( GCalculatorDeathTest, AZeroDivisorFaults )
{
    const auto divide = []
    {
        std::signal( SIGFPE, SIG_DFL );
        calc( "1/0" );
    };
    EXPECT_EXIT( divide( ), testing::KilledBySignal( SIGFPE ), "" );
}
