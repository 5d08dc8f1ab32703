#include "platform/common/GWaveFile.h"

#include "base/GUtil.h"

#include <gtest/gtest.h>

namespace
{
GString number( uint32_t value, int bytes )
{
    GString text;
    for( int i = 0; i < bytes; i++ ) text += static_cast<char>( value >> ( 8 * i ) );
    return text;
}
GString chunk( const GString& name, const GString& content )
{
    GString text = name + number( static_cast<uint32_t>( content.size( ) ), 4 ) + content;
    return content.size( ) % 2 ? text + '\0' : text;
}
GString format( uint32_t kind, uint32_t channels, uint32_t frequency, uint32_t bits )
{
    return chunk( "fmt ", number( kind, 2 ) + number( channels, 2 ) + number( frequency, 4 ) +
                              number( frequency * channels * bits / 8, 4 ) + number( channels * bits / 8, 2 ) +
                              number( bits, 2 ) );
}
GString riff( const GString& chunks )
{
    return "RIFF" + number( static_cast<uint32_t>( 4 + chunks.size( ) ), 4 ) + "WAVE" + chunks;
}
bool parses( const GString& file )
{
    GWaveFile wave;
    return wave.parse( file );
}
} // namespace

TEST( GWaveFile, PlainFilesAreRead )
{
    GWaveFile wave;
    ASSERT_TRUE( wave.parse( riff( format( 1, 2, 44100, 16 ) + chunk( "data", "abcdefgh" ) ) ) );
    EXPECT_EQ( wave.channels, 2 );
    EXPECT_EQ( wave.frequency, 44100 );
    EXPECT_EQ( wave.bits, 16 );
    EXPECT_EQ( wave.samples, "abcdefgh" );
    EXPECT_TRUE( wave.parse( riff( format( 1, 1, 8000, 8 ) + chunk( "data", "abc" ) ) ) );
    EXPECT_EQ( wave.samples, "abc" );
}

TEST( GWaveFile, OtherChunksArePassedOver )
{
    EXPECT_TRUE( parses( riff( chunk( "LIST", "abc" ) + format( 1, 1, 8000, 16 ) + chunk( "fact", "1234" ) +
                               chunk( "data", "ab" ) + chunk( "cue ", "x" ) ) ) );
}

TEST( GWaveFile, PartOfAFrameIsCut )
{
    GWaveFile wave;
    ASSERT_TRUE( wave.parse( riff( format( 1, 2, 8000, 16 ) + chunk( "data", "abcdefg" ) ) ) );
    EXPECT_EQ( wave.samples, "abcd" );
}

TEST( GWaveFile, WhatCannotBePlayedIsRefused )
{
    const GString data = chunk( "data", "abcd" );
    for( const GString& wrong :
         { format( 2, 1, 8000, 16 ), format( 0xFFFE, 1, 8000, 16 ), format( 1, 0, 8000, 16 ), format( 1, 3, 8000, 16 ),
           format( 1, 0xFFFF, 8000, 16 ), format( 1, 1, 0, 16 ), format( 1, 1, 3999, 16 ), format( 1, 1, 192001, 16 ),
           format( 1, 1, 0xFFFFFFFF, 16 ), format( 1, 1, 8000, 0 ), format( 1, 1, 8000, 12 ), format( 1, 1, 8000, 24 ),
           format( 1, 1, 8000, 0xFFFF ), chunk( "fmt ", "short" ), GString( ) } )
        EXPECT_FALSE( parses( riff( wrong + data ) ) );
    EXPECT_FALSE( parses( riff( data + format( 1, 1, 8000, 16 ) ) ) ) << "samples before their format";
    EXPECT_FALSE( parses( riff( format( 1, 1, 8000, 16 ) ) ) ) << "no samples";
    EXPECT_FALSE( parses( riff( format( 1, 1, 8000, 16 ) + chunk( "data", "" ) ) ) );
    EXPECT_FALSE( parses( riff( format( 1, 1, 8000, 16 ) + chunk( "data", "a" ) ) ) );
    EXPECT_FALSE( parses( "" ) );
    EXPECT_FALSE( parses( GString( 1000, '\0' ) ) );
    EXPECT_FALSE( parses( "RIFX" + riff( format( 1, 1, 8000, 16 ) + data ).substr( 4 ) ) );
}

// Lengths in the file are the file's claim only.
TEST( GWaveFile, AbsurdLengthsReachNoFurtherThanTheFile )
{
    for( const uint32_t claim : { 5U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFF0U, 0xFFFFFFFFU } )
    {
        GWaveFile wave;
        ASSERT_TRUE( wave.parse( riff( format( 1, 1, 8000, 16 ) + "data" + number( claim, 4 ) + "abcd" ) ) );
        EXPECT_EQ( wave.samples, "abcd" );
        EXPECT_FALSE( parses( riff( "junk" + number( claim, 4 ) + format( 1, 1, 8000, 16 ) ) ) );
        EXPECT_FALSE( parses( riff( "fmt " + number( claim, 4 ) + number( 1, 2 ) ) ) );
    }
}

TEST( GWaveFile, FileCutAnywhereIsRefusedOrShorter )
{
    const GString whole = riff( chunk( "LIST", "abc" ) + format( 1, 1, 8000, 16 ) + chunk( "data", "abcdefghij" ) );
    const size_t samplesAt = whole.size( ) - 10;
    for( size_t length = 0; length < whole.size( ); length++ )
    {
        GWaveFile wave;
        const bool good = wave.parse( whole.substr( 0, length ) );
        EXPECT_EQ( good, length >= samplesAt + 2 ) << length;
        EXPECT_EQ( wave.samples.size( ), good ? ( length - samplesAt ) / 2 * 2 : 0 ) << length;
    }
}

TEST( GWaveFile, AnyByteMayBeWrong )
{
    const GString whole = riff( format( 1, 2, 22050, 16 ) + chunk( "data", "abcdefghijkl" ) );
    for( size_t at = 0; at < whole.size( ); at++ )
        for( int value = 0; value < 256; value += 15 )
        {
            GString mutated = whole;
            mutated[at] = static_cast<char>( value );
            GWaveFile wave;
            if( !wave.parse( mutated ) ) continue;
            EXPECT_LE( wave.samples.size( ), 12U );
            EXPECT_GE( wave.frequency, 4000 );
            EXPECT_LE( wave.frequency, 192000 );
        }
}
