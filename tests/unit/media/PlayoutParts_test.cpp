// What a playout is made of: the window of packets, the queue of pictures, and sound made shorter and longer.
#include "client/media/GPacketWindow.h"
#include "client/media/GPictureQueue.h"
#include "client/media/GVoiceStretch.h"

#include "support/CountAllocations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace
{
std::vector<int16_t> samplesOf( const GString& bytes )
{
    std::vector<int16_t> samples( bytes.size( ) / 2 );
    std::memcpy( samples.data( ), bytes.data( ), bytes.size( ) );
    return samples;
}
std::vector<int16_t> tone( int count, double amplitude )
{
    std::vector<int16_t> samples;
    for( int i = 0; i < count; ++i ) samples.push_back( static_cast<int16_t>( amplitude * std::sin( i * 0.05 ) ) );
    return samples;
}
std::vector<int16_t> shorten( const std::vector<int16_t>& samples, int less, bool quiet, int& done )
{
    GString out;
    done = GVoiceShorten( samples.data( ), static_cast<int>( samples.size( ) ), less, quiet, out );
    return samplesOf( out );
}
int greatestStep( const std::vector<int16_t>& samples )
{
    int step = 0;
    for( size_t i = 1; i < samples.size( ); ++i ) step = std::max( step, std::abs( samples[i] - samples[i - 1] ) );
    return step;
}
} // namespace

TEST( GPacketWindow, HandsPacketsOutInOrderOverTheWrap )
{
    GPacketWindow window;
    window.restart( 65534 );
    for( const uint16_t sequence : { 1, 65535, 0, 65534 } )
        EXPECT_TRUE( window.put( sequence, sequence, reinterpret_cast<const char*>( &sequence ), 2 ) );
    for( const uint16_t sequence : { 65534, 65535, 0, 1 } )
    {
        const GPacketWindow::Packet* packet = window.getFront( );
        ASSERT_TRUE( packet );
        EXPECT_EQ( sequence, packet->stamp );
        EXPECT_EQ( 2U, packet->frame.size( ) );
        window.advance( );
    }
    EXPECT_TRUE( window.isEmpty( ) );
    EXPECT_FALSE( window.getFront( ) );
}

TEST( GPacketWindow, KnowsWhatCameAndWhatOnlyPassed )
{
    GPacketWindow window;
    window.restart( 10 );
    window.put( 10, 0, "", 0 );
    EXPECT_TRUE( window.isKnown( 10 ) );
    window.advance( );
    window.advance( ); // 11 never came.
    EXPECT_TRUE( window.isKnown( 10 ) );
    EXPECT_FALSE( window.isKnown( 11 ) );
    EXPECT_FALSE( window.put( 11, 0, "", 0 ) ) << "too late";
    EXPECT_TRUE( window.isKnown( 11 ) ) << "and not a second time";
    EXPECT_FALSE( window.isKnown( 12 ) );
    EXPECT_EQ( -1, window.getAhead( 11 ) );
    EXPECT_EQ( 3, window.getAhead( 15 ) );
}

TEST( GPictureQueue, PicturesComeInOrderAndLeaveTheirRoom )
{
    GPictureQueue queue;
    for( int round = 0; round < 3; ++round )
    {
        for( int i = 0; i < GPictureQueue::SIZE; ++i )
        {
            GString pixels( 100, static_cast<char>( i ) );
            queue.put( i == 5 ? 2 : static_cast<uint64_t>( i ), { }, pixels );
        }
        EXPECT_TRUE( queue.isFull( ) );
        for( int i = 0; i < GPictureQueue::SIZE; ++i )
        {
            EXPECT_EQ( static_cast<uint64_t>( i == 5 ? 4 : i ), queue.getFront( ).time ) << "never before the last";
            GString pixels;
            queue.take( pixels );
            EXPECT_EQ( GString( 100, static_cast<char>( i ) ), pixels );
        }
        EXPECT_TRUE( queue.isEmpty( ) );
    }
}

TEST( GPictureQueue, OnlyAsManyHaveRoomAsEverWaited )
{
    GPictureQueue queue;
    GString pixels;
    const auto put = [&]
    {
        pixels.assign( 5000, 'x' );
        queue.put( 0, { }, pixels );
    };
    put( );
    put( );
    EXPECT_LE( countAllocations(
                   [&]
                   {
                       for( int i = 0; i < 300; ++i )
                       {
                           queue.pop( );
                           put( );
                       }
                   } ),
               2 );
}

TEST( GPictureQueue, LargePicturesFillItEarlier )
{
    GPictureQueue queue;
    int count = 0;
    for( ; !queue.isFull( ); ++count )
    {
        GString pixels( 3 << 20, 'x' );
        queue.put( 0, { }, pixels );
    }
    EXPECT_EQ( 6, count );
    queue.pop( );
    EXPECT_FALSE( queue.isFull( ) );
}

TEST( GVoiceStretch, QuietSoundGivesUpToHalf )
{
    int done = 0;
    EXPECT_EQ( 220U, shorten( tone( 320, 50 ), 100, true, done ).size( ) );
    EXPECT_EQ( 100, done );
    EXPECT_EQ( 160U, shorten( tone( 320, 50 ), 1000, true, done ).size( ) );
    EXPECT_EQ( 160, done );
    EXPECT_EQ( 420U, shorten( tone( 320, 50 ), -100, true, done ).size( ) );
    EXPECT_EQ( 480U, shorten( tone( 320, 50 ), -1000, true, done ).size( ) );
    EXPECT_EQ( -160, done );
}

TEST( GVoiceStretch, LoudSoundGivesHalfAPercentWithoutASeam )
{
    const auto loud = tone( 320, 20000 );
    int done = 0;
    for( const int less : { 100, -100 } )
    {
        const auto made = shorten( loud, less, false, done );
        EXPECT_EQ( less > 0 ? 1 : -1, done );
        EXPECT_EQ( loud.size( ) - static_cast<size_t>( done ), made.size( ) );
        EXPECT_EQ( loud.front( ), made.front( ) );
        EXPECT_EQ( loud.back( ), made.back( ) );
        EXPECT_LE( greatestStep( made ), greatestStep( loud ) + 10 );
    }
    EXPECT_EQ( loud, shorten( loud, 0, false, done ) );
    EXPECT_EQ( 1U, shorten( { 5 }, 1, false, done ).size( ) );
}

TEST( GVoiceStretch, FadesAndPeaks )
{
    std::vector<int16_t> samples( 256, -10000 );
    GVoiceFade( samples.data( ), 256, 0, 256 );
    EXPECT_EQ( 0, samples.front( ) );
    EXPECT_NEAR( -5000, samples[128], 40 );
    EXPECT_NEAR( -10000, samples.back( ), 40 );
    EXPECT_EQ( -samples.back( ), GVoicePeak( samples.data( ), 256 ) );
    const int16_t least = -32768;
    EXPECT_EQ( 32768, GVoicePeak( &least, 1 ) );
}
