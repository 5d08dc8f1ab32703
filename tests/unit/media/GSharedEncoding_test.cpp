#include "client/media/GSharedEncoding.h"

#include "CaptureFixture.h"
#include "base/GRandom.h"
#include "support/CountAllocations.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace
{
constexpr uint64_t SECOND = 1000000;
constexpr uint64_t FRAME_TIME = SECOND / 7;
constexpr int KEY_BYTE = 16 + 28; // Behind the packet's header and that of the serialized codec packet.

struct Packet
{
    GRTPHeader header;
    GString payload; // The format word and the frame.
    bool isKeyPicture( ) const
    {
        return header.payloadType == GRTP_VIDEO && payload.size( ) > KEY_BYTE - 12 &&
               !( static_cast<unsigned char>( payload[KEY_BYTE - 12] ) & 0xC0 );
    }
};
} // namespace

class GSharedEncodingTest : public GVideoCapture
{
protected:
    void SetUp( ) override
    {
        GVideoCapture::SetUp( );
        TestLog::allow( "WARNING Non-ideal video match" );
        instance->set( u"Robust_Media", 1 );
        start( );
    }
    // Opens a stream to a device and gives its SSRC.
    uint32_t open( const GWString& name, int fps = 1, bool audioToo = false )
    {
        GHTTPHeaders message = command( u"OPEN", name );
        message.set( u"Video-FPS", fps );
        message.set( u"Audio-Enable", audioToo ? u"true" : u"false" );
        run( message );
        return GReadU32( received( ).data( ) + 4 );
    }
    void change( const GWString& name, int fps, bool audioToo, bool videoToo = true )
    {
        GHTTPHeaders message = command( u"RESET", name );
        message.set( u"Video-FPS", fps );
        message.set( u"Audio-Enable", audioToo ? u"true" : u"false" );
        message.set( u"Video-Enable", videoToo ? u"true" : u"false" );
        run( message );
    }
    // All that has come.
    std::vector<Packet> packets( )
    {
        std::vector<Packet> all;
        GString buffer;
        GWString from;
        while( GNetUDPPortRecv( receiver, buffer, from ) )
        {
            Packet packet;
            int length = 0;
            const char* payload =
                GDecomposeRTP( buffer.data( ), static_cast<int>( buffer.size( ) ), packet.header, length );
            packet.payload.assign( payload, static_cast<size_t>( length ) );
            all.push_back( packet );
        }
        return all;
    }
    // A frame of a camera before which little moves, so that no picture stands by itself without a reason.
    void show( uint64_t timestamp )
    {
        const GString pixels = picture( 64, 64, 0 );
        for( IGCaptureVideoListener* listener : FakeCapture::get( ).videoListeners( ) )
            listener->onVideoFrame( timestamp, { GIT_RGB24, 64, 64 }, pixels.data( ),
                                    static_cast<int>( pixels.size( ) ) );
    }
    // Frames of a camera until the time is over; what was sent for them.
    std::vector<Packet> film( uint64_t begin, uint64_t duration )
    {
        std::vector<Packet> all;
        for( uint64_t t = begin; t < begin + duration; t += FRAME_TIME )
        {
            show( t );
            for( const Packet& packet : packets( ) ) all.push_back( packet );
        }
        return all;
    }
    static std::vector<Packet> of( const std::vector<Packet>& all, uint32_t ssrc )
    {
        std::vector<Packet> some;
        std::copy_if( all.begin( ), all.end( ), std::back_inserter( some ),
                      [ssrc]( const Packet& packet ) { return packet.header.ssrc == ssrc; } );
        return some;
    }
    static long keyPictures( const std::vector<Packet>& all )
    {
        return std::count_if( all.begin( ), all.end( ), []( const Packet& packet ) { return packet.isKeyPicture( ); } );
    }
};

TEST_F( GSharedEncodingTest, EveryStreamGetsTheSameFrameInItsOwnPacket )
{
    const uint32_t ben = open( u"ben@velmora.local@one" );
    const uint32_t eve = open( u"eve@velmora.local@two" );
    const std::vector<Packet> all = film( 5 * SECOND, 3 * SECOND );
    const std::vector<Packet> bens = of( all, ben );
    const std::vector<Packet> eves = of( all, eve );
    ASSERT_EQ( bens.size( ), 3U );
    ASSERT_EQ( eves.size( ), 3U );
    for( size_t i = 0; i < 3; ++i )
    {
        EXPECT_EQ( bens[i].payload, eves[i].payload );
        EXPECT_EQ( bens[i].header.sequence, i + 1 );
        EXPECT_EQ( eves[i].header.sequence, i + 1 );
        EXPECT_EQ( bens[i].header.timestamp, eves[i].header.timestamp );
    }
    EXPECT_EQ( TestLog::count( "Non-ideal video match" ), 1 );
}

TEST_F( GSharedEncodingTest, ToTheLetterEachStreamEncodesForItself )
{
    instance->set( u"Robust_Media", 0 );
    run( restart( ) );
    open( u"ben@velmora.local@one" );
    open( u"eve@velmora.local@two" );
    EXPECT_EQ( film( 5 * SECOND, SECOND ).size( ), 2U );
    EXPECT_EQ( TestLog::count( "Non-ideal video match" ), 2 );
    EXPECT_EQ( FakeCapture::get( ).videoListeners( ).size( ), 3U );
}

TEST_F( GSharedEncodingTest, StreamsOfOtherRatesHaveAnEncodingOfTheirOwn )
{
    const uint32_t ben = open( u"ben@velmora.local@one", 1 );
    const uint32_t eve = open( u"eve@velmora.local@two", 5 );
    const std::vector<Packet> all = film( 5 * SECOND, 7 * SECOND );
    EXPECT_EQ( of( all, ben ).size( ), 7U );
    EXPECT_EQ( of( all, eve ).size( ), 25U );
    EXPECT_EQ( TestLog::count( "Non-ideal video match" ), 2 );
}

TEST_F( GSharedEncodingTest, WhoJoinsGetsAKeyPictureWithTheNextFrameThatTheCameraGives )
{
    const uint32_t ben = open( u"ben@velmora.local@one" );
    film( 5 * SECOND, 3 * SECOND );
    const uint32_t eve = open( u"eve@velmora.local@two" );
    show( 8 * SECOND + 50000 ); // Before the next picture is due.
    const std::vector<Packet> all = packets( );
    ASSERT_EQ( of( all, eve ).size( ), 1U );
    EXPECT_TRUE( of( all, eve )[0].isKeyPicture( ) );
    EXPECT_TRUE( of( all, ben )[0].isKeyPicture( ) );
    EXPECT_EQ( of( all, eve )[0].header.sequence, 1 );
    EXPECT_EQ( of( all, ben )[0].header.sequence, 4 );
}

TEST_F( GSharedEncodingTest, AHundredJoinsInASecondMakeTwoKeyPicturesForThoseWhoWereThere )
{
    GRandomSeed( 7 ); // All sources are different.
    const uint32_t ben = open( u"ben@velmora.local@0", 5 );
    film( 5 * SECOND, 2 * SECOND );
    std::vector<Packet> all;
    for( int i = 0; i < 98; ++i )
    {
        open( GConcat( u"eve@velmora.local@", i ), 5 );
        const uint64_t t = 7 * SECOND + static_cast<uint64_t>( i ) * 10000;
        if( i % 14 ) continue;
        show( t );
        for( const Packet& packet : packets( ) ) all.push_back( packet );
    }
    EXPECT_EQ( keyPictures( of( all, ben ) ), 2 );
    // And everybody has one soon.
    for( const Packet& packet : film( 8 * SECOND, SECOND ) ) all.push_back( packet );
    std::set<uint32_t> seeing;
    for( const Packet& packet : all )
    {
        EXPECT_TRUE( seeing.contains( packet.header.ssrc ) || packet.isKeyPicture( ) || packet.header.ssrc == ben );
        seeing.insert( packet.header.ssrc );
    }
    EXPECT_EQ( seeing.size( ), 99U );
}

TEST_F( GSharedEncodingTest, TheEncoderStartsAfreshEvery8Seconds )
{
    const uint32_t ben = open( u"ben@velmora.local@one" );
    const std::vector<Packet> all = of( film( 5 * SECOND, 30 * SECOND ), ben );
    EXPECT_EQ( keyPictures( all ), 4 );
}

TEST_F( GSharedEncodingTest, KeyPicturesOfSeveralEncodersDoNotCoincide )
{
    for( int fps = 1; fps <= 5; ++fps ) open( GConcat( u"ben@velmora.local@", fps ), fps );
    film( 5 * SECOND, 3 * SECOND ); // All of them begin with one.
    uint64_t last = 0;
    int count = 0;
    for( const Packet& packet : film( 8 * SECOND, 40 * SECOND ) )
    {
        if( !packet.isKeyPicture( ) ) continue;
        EXPECT_GE( packet.header.timestamp - last, 490U );
        last = packet.header.timestamp;
        ++count;
    }
    EXPECT_GE( count, 5 * 4 );
    EXPECT_LE( count, 5 * 5 );
}

TEST_F( GSharedEncodingTest, AStreamThatChangesItsRateGoesOnCounting )
{
    const uint32_t ben = open( u"ben@velmora.local@one" );
    film( 5 * SECOND, 2 * SECOND );
    change( u"ben@velmora.local@one", 5, true );
    const std::vector<Packet> all = film( 7 * SECOND, SECOND );
    ASSERT_GE( all.size( ), 3U );
    EXPECT_TRUE( all[0].isKeyPicture( ) );
    EXPECT_EQ( all[0].header.ssrc, ben );
    EXPECT_EQ( all[0].header.sequence, 3 );
    change( u"ben@velmora.local@one", 5, false, false );
    EXPECT_TRUE( film( 9 * SECOND, 2 * SECOND ).empty( ) );
}

TEST_F( GSharedEncodingTest, TheVoiceIsEncodedOnceForAllWhoAreTalkedTo )
{
    const uint32_t ben = open( u"ben@velmora.local@one", 1, true );
    const uint32_t eve = open( u"eve@velmora.local@two", 1, false );
    audio( 5 * SECOND );
    EXPECT_EQ( packets( ).size( ), 1U );
    change( u"eve@velmora.local@two", 1, true ); // In the middle of a spurt.
    audio( 5 * SECOND + 50000 );
    const std::vector<Packet> all = packets( );
    ASSERT_EQ( all.size( ), 2U );
    EXPECT_EQ( all[0].payload, all[1].payload );
    EXPECT_EQ( of( all, ben ).at( 0 ).header.sequence, 2 );
    EXPECT_EQ( of( all, eve ).at( 0 ).header.sequence, 1 );
    EXPECT_EQ( of( all, eve ).at( 0 ).header.timestamp, 505U );
    change( u"ben@velmora.local@one", 1, false );
    audio( 5 * SECOND + 100000 );
    EXPECT_EQ( of( packets( ), ben ).size( ), 0U );
}

TEST_F( GSharedEncodingTest, AClosedStreamGetsNothingAndTheOthersGoOn )
{
    const uint32_t ben = open( u"ben@velmora.local@one", 1, true );
    const uint32_t eve = open( u"eve@velmora.local@two", 1, true );
    film( 5 * SECOND, SECOND );
    run( command( u"CLOSE", u"ben@velmora.local@one" ) );
    audio( 7 * SECOND );
    const std::vector<Packet> voices = packets( );
    const std::vector<Packet> all = film( 7 * SECOND, SECOND );
    EXPECT_TRUE( of( voices, ben ).empty( ) && of( all, ben ).empty( ) );
    EXPECT_EQ( of( voices, eve ).size( ), 1U );
    EXPECT_EQ( of( all, eve ).size( ), 1U );
}

TEST_F( GSharedEncodingTest, StartHooksTheSameStreamsAgain )
{
    const uint32_t ben = open( u"ben@velmora.local@one", 1, true );
    audio( 5 * SECOND );
    film( 5 * SECOND, 2 * SECOND );
    run( restart( ) );
    audio( 7 * SECOND );
    EXPECT_EQ( of( packets( ), ben ).at( 0 ).header.sequence, 2 );
    const std::vector<Packet> all = film( 7 * SECOND, SECOND );
    EXPECT_TRUE( of( all, ben ).at( 0 ).isKeyPicture( ) );
    EXPECT_EQ( of( all, ben ).at( 0 ).header.sequence, 3 );
    EXPECT_EQ( FakeCapture::get( ).videoListeners( ).size( ), 2U );
}

TEST_F( GSharedEncodingTest, AnotherSizeOfTheSourceMakesTheEncoderAnew )
{
    open( u"ben@velmora.local@one" );
    show( 5 * SECOND );
    video( 7 * SECOND, 160, 120 );
    const std::vector<Packet> all = packets( );
    EXPECT_EQ( keyPictures( all ), 2 );
    EXPECT_EQ( TestLog::count( "will resize from 112 to 48" ), 1 );
}

TEST_F( GSharedEncodingTest, AnotherVideoSizeHoldsFromTheNextFreshStartOn )
{
    open( u"ben@velmora.local@one" );
    film( 5 * SECOND, SECOND );
    instance->set( u"Video_Size", 64 );
    film( 6 * SECOND, SECOND );
    open( u"eve@velmora.local@two" );
    const std::vector<Packet> all = film( 7 * SECOND, SECOND );
    EXPECT_EQ( GReadU32( all.at( 0 ).payload.data( ) ), 64U );
}

TEST_F( GSharedEncodingTest, StreamsComeAndGoWhileFramesAreSent )
{
    GSharedEncoding shared( instance.get( ), port.get( ) );
    const GString pixels = picture( 64, 64, 0 );
    const GString samples = tone( 320 );
    std::atomic<bool> isOver = false;
    std::atomic<int> pictures = 0;
    std::atomic<int> buffers = 0;
    // A device waits between two frames; without that the others would hardly come in between.
    const auto pause = [] { std::this_thread::sleep_for( std::chrono::microseconds( 100 ) ); };
    std::thread camera(
        [&]
        {
            for( uint64_t t = 5 * SECOND; !isOver; t += FRAME_TIME, ++pictures, pause( ) )
                shared.onVideoFrame( t, { GIT_RGB24, 64, 64 }, pixels.data( ), static_cast<int>( pixels.size( ) ) );
        } );
    std::thread microphone(
        [&]
        {
            for( uint64_t t = 5 * SECOND; !isOver; t += 14545, ++buffers, pause( ) )
                shared.onAudioFrame( t, { 2, 22000, 1 }, samples.data( ), static_cast<int>( samples.size( ) ) );
        } );
    for( int i = 0; i < 50 || pictures < 50 || buffers < 50; ++i )
    {
        GHTTPHeaders message = command( u"OPEN" );
        message.set( u"Video-FPS", i % 3 + 1 );
        GVideoCaptureStream stream( instance.get( ), port.get( ), message );
        stream.setFormat( message );
        shared.add( &stream );
        const int before = buffers;
        while( buffers < before + 2 ) std::this_thread::yield( );
        shared.remove( &stream );
        stream.setFormat( message );
        shared.add( &stream );
        shared.remove( &stream );
    }
    isOver = true;
    camera.join( );
    microphone.join( );
    EXPECT_FALSE( received( ).empty( ) );
}

TEST_F( GSharedEncodingTest, FramesTakeNothingFromTheHeap )
{
    for( int i = 0; i < 10; ++i ) open( GConcat( u"ben@velmora.local@", i ), i % 2 ? 1 : 5, true );
    film( 5 * SECOND, 20 * SECOND );
    const GString pixels = picture( 64, 64, 1 );
    const GString samples = tone( 320 );
    const auto videoListeners = FakeCapture::get( ).videoListeners( );
    const auto audioListeners = FakeCapture::get( ).audioListeners( );
    uint64_t t = 30 * SECOND;
    const auto work = [&]
    {
        for( const uint64_t end = t + 20 * SECOND; t < end; t += FRAME_TIME )
        {
            for( IGCaptureVideoListener* listener : videoListeners )
                listener->onVideoFrame( t, { GIT_RGB24, 64, 64 }, pixels.data( ), static_cast<int>( pixels.size( ) ) );
            for( IGCaptureAudioListener* listener : audioListeners )
                listener->onAudioFrame( t, { 2, 22000, 1 }, samples.data( ), 640 );
        }
    };
    work( );
    EXPECT_EQ( countAllocations( work ), 0 );
}
