// An hour of talk spurts from the encoders over a link that loses, delays, reorders and doubles, to the ear and the picture, in virtual
// time. What one talk takes it gives back, and no talk is lost.
#include "client/media/GSharedEncoding.h"
#include "client/media/GVideoPlaybackStream.h"

#include "MediaFixture.h"
#include "base/GBytes.h"

#include <filesystem>
#include <malloc.h>
#include <random>

namespace
{
constexpr uint64_t MILLISECOND = 1000;
constexpr uint64_t SECOND = 1000 * MILLISECOND;
constexpr int RATE = 22000;
constexpr int BUFFER = 320; // Samples: two frames of the codec.
constexpr uint64_t BUFFER_TIME = BUFFER * SECOND / RATE;
constexpr uint64_t PICTURE_TIME = 200 * MILLISECOND;
// The sanitizers have a heap of their own and take their time.
#if defined( __SANITIZE_ADDRESS__ ) || defined( __SANITIZE_THREAD__ )
constexpr uint64_t HOUR = 300 * SECOND;
#else
constexpr uint64_t HOUR = 3600 * SECOND;
#endif
constexpr int LOUD = 1000;
// Rooms of buffers still grow a little after the first talks, and the heap rounds.
constexpr size_t GROWTH = 64 * 1024;
constexpr char16_t HOST[] = u"10.0.0.9:5000";

struct Holdings
{
    size_t heap = 0;
    size_t names = 0;
    ptrdiff_t threads = 0;
    ptrdiff_t handles = 0;
};

ptrdiff_t countOf( const char* folder )
{
    return std::distance( std::filesystem::directory_iterator( folder ), { } );
}
} // namespace

class HourOfTalk : public MediaFixture
{
protected:
    void SetUp( ) override
    {
        MediaFixture::SetUp( );
        instance->set( u"Robust_Media", 1 );
        TestLog::allow( "WARNING" ); // Losses and silences are told, thousands of times.
        sound.clocked = true;
        stream.reset( GSAFENEW( GVideoPlaybackStream, ( instance.get( ), port.get( ), command( u"OPEN" ) ) ) );
        encodeOnce( );
    }
    void TearDown( ) override
    {
        stream.reset( );
        MediaFixture::TearDown( );
    }
    // What is sent over and over again: coding it anew would take most of the time.
    void encodeOnce( )
    {
        GSpeexEncoder speex( GWaveFormatMono16( RATE ) );
        const GString samples = tone( BUFFER );
        for( GString& word : words )
        {
            word.clear( );
            speex.encode( samples.data( ), BUFFER * 2, word );
        }
        GTheoraEncoder theora( { GIT_RGB24, 48, 48 }, { 0, 0, 48, 48 }, 48, 48, 5 );
        for( size_t i = 0; i < std::size( pictures ); ++i )
            theora.encode( picture( 48, 48, static_cast<int>( i ) ).data( ), 48 * 48 * 3, pictures[i] );
    }
    void send( int type, uint16_t sequence, uint64_t captured, uint32_t word, const GString& frame )
    {
        char prefix[4];
        GWriteU32( prefix, word );
        const uint64_t unit = type == GRTP_AUDIO ? 10 * MILLISECOND : MILLISECOND;
        GRTPCompose( packet, type, sequence, static_cast<uint32_t>( captured / unit ), 7, prefix, 4, frame.data( ),
                     static_cast<int>( frame.size( ) ) );
        if( chance( ) < 5 ) return;
        const int copies = chance( ) < 2 ? 2 : 1;
        for( int i = 0; i < copies; ++i )
            link.emplace( now + ( 20 + chance( ) / 5 + ( chance( ) < 3 ? 30 : 0 ) ) * MILLISECOND, packet );
    }
    uint64_t chance( ) { return random( ) % 100; }
    // One moment: what the link delivers, what the stream wanted to do by now, what the device takes.
    void step( )
    {
        while( !link.empty( ) && link.begin( )->first <= now )
        {
            bucket.buffer.assign( link.begin( )->second );
            link.erase( link.begin( ) );
            stream->recv( bucket );
        }
        if( stream->getNextUpdate( ) <= now || now - lastUpdate > 100 * MILLISECOND )
        {
            lastUpdate = now;
            stream->update( );
        }
        sound.run( );
        for( const int16_t sample : sound.output ) loudSamples += std::abs( sample ) > LOUD;
        sound.output.clear( );
    }
    // Somebody talks for so long, and rests until it is certain that he has ended. The samples of the talk that were heard.
    int64_t talk( uint64_t length )
    {
        loudSamples = 0;
        const uint64_t end = now + length;
        uint64_t nextWord = now;
        for( ; now < end; now += 5 * MILLISECOND )
        {
            for( ; nextWord <= now; nextWord += BUFFER_TIME, ++audio )
                send( GRTP_AUDIO, static_cast<uint16_t>( audio + 1 ), nextWord, RATE,
                      words[audio % std::size( words )] );
            film( PICTURE_TIME );
            step( );
        }
        for( const uint64_t rest = end + 2 * SECOND + chance( ) * 20 * MILLISECOND; now < rest;
             now += 10 * MILLISECOND )
        {
            film( SECOND );
            step( );
        }
        GString item;
        while( instance->dequeue( u"GClient_commandQueue", item ) )
        {
        }
        return loudSamples;
    }
    void film( uint64_t period )
    {
        if( now - lastPicture < period ) return;
        lastPicture = now;
        // Every round of the film begins with a picture that stands by itself.
        const GString& frame = pictures[video++ % std::size( pictures )];
        send( GRTP_VIDEO, static_cast<uint16_t>( video ), now, 48, frame );
    }
    Holdings holdings( ) const
    {
        return { mallinfo2( ).uordblks, instance->getNameCount( ), countOf( "/proc/self/task" ),
                 countOf( "/proc/self/fd" ) };
    }

    FakeSound& sound = FakeSound::get( );
    std::unique_ptr<GVideoPlaybackStream> stream;
    std::mt19937 random{ 20 };
    std::multimap<uint64_t, GString> link;
    GMegaPortBucket bucket;
    GString packet;
    GString words[8];
    GString pictures[40];
    uint64_t lastUpdate = 0;
    uint64_t lastPicture = 0;
    size_t audio = 0;
    size_t video = 0;
    int64_t loudSamples = 0;
};

TEST_F( HourOfTalk, TakesNothingThatItDoesNotGiveBackAndIsHeard )
{
    for( int i = 0; i < 20; ++i ) talk( SECOND + chance( ) * 40 * MILLISECOND );
    TestLog::clear( );
    const Holdings before = holdings( );
    const uint64_t begin = now;
    int talks = 0;
    for( ; now - begin < HOUR; ++talks )
    {
        const uint64_t length = 500 * MILLISECOND + chance( ) * 60 * MILLISECOND;
        const int64_t heard = talk( length );
        // A tone is loud in most of its samples, and what was lost is guessed.
        ASSERT_GT( heard, static_cast<int64_t>( length * RATE / SECOND ) / 2 ) << "talk " << talks << " of " << length;
        ASSERT_EQ( sound.opened, sound.closed ) << "talk " << talks;
        TestLog::clear( );
    }
    const Holdings after = holdings( );
    EXPECT_GT( talks, static_cast<int>( HOUR / ( 10 * SECOND ) ) );
    EXPECT_LT( after.heap, before.heap + GROWTH );
    EXPECT_EQ( after.names, before.names );
    EXPECT_EQ( after.threads, before.threads );
    EXPECT_EQ( after.handles, before.handles );
    EXPECT_TRUE( instance->isSet( u"ben@velmora.local_Image" ) );
}
