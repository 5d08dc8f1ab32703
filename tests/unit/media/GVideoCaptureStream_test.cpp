// What one stream sends, without a remedy.
#include "client/media/GVideoCaptureStream.h"

#include "CaptureFixture.h"
#include "client/media/GSpeexDecoder.h"
#include "image/GImage.h"

namespace
{
constexpr int HEADER = 16; // With the format word.
} // namespace

class GVideoCaptureStreamTest : public GVideoCapture
{
protected:
    void SetUp( ) override
    {
        GVideoCapture::SetUp( );
        GLogSetFilter( "xAV" );
        TestLog::allow( "WARNING Non-ideal video match" );
    }
    void TearDown( ) override
    {
        GLogSetFilter( "" );
        GVideoCapture::TearDown( );
    }
    void show( uint64_t timestamp, int width, int height, const GString& pixels )
    {
        for( IGCaptureVideoListener* listener : FakeCapture::get( ).videoListeners( ) )
            listener->onVideoFrame( timestamp, { GIT_RGB24, width, height }, pixels.data( ),
                                    static_cast<int>( pixels.size( ) ) );
    }
    // Samples in the next packet.
    int samplesReceived( )
    {
        const GString packet = received( );
        GString codebook;
        GSpeexEncoder_generateCodebook( codebook, 22000 );
        GSpeexDecoder decoder( codebook.data( ), static_cast<int>( codebook.size( ) ) );
        GString samples;
        decoder.decode( packet.data( ) + HEADER, static_cast<int>( packet.size( ) ) - HEADER, samples );
        return static_cast<int>( samples.size( ) / 2 );
    }
};

TEST_F( GVideoCaptureStreamTest, ItSubscribesForSoundThenPictures )
{
    start( );
    FakeCapture::get( ).calls.clear( );
    run( command( u"OPEN" ) );
    EXPECT_EQ( FakeCapture::get( ).calls, ( std::vector<GString>{ "+audio", "+video" } ) );
    EXPECT_TRUE( TestLog::contains( "Received 'OPEN' request, beginning to capture to 'ben@velmora.local@dev2" ) );
    EXPECT_TRUE( TestLog::contains( "Creating stream" ) );
    EXPECT_TRUE( TestLog::contains( "Setting video format=" ) );
}

TEST_F( GVideoCaptureStreamTest, AnotherOpenMakesAnotherSourceWithItsOwnReport )
{
    start( );
    run( command( u"OPEN" ) );
    const GString first = received( );
    FakeCapture::get( ).calls.clear( );
    run( command( u"OPEN" ) );
    const GString second = received( );
    EXPECT_TRUE( TestLog::contains( "Stream 'ben@velmora.local@dev2' already open, closing so we can reopen" ) );
    EXPECT_NE( GReadU32( first.data( ) + 4 ), GReadU32( second.data( ) + 4 ) );
    EXPECT_EQ( FakeCapture::get( ).calls, ( std::vector<GString>{ "-audio", "-video", "+audio", "+video" } ) );
    video( 5000000 );
    EXPECT_EQ( GReadU32( received( ).data( ) + 8 ), GReadU32( second.data( ) + 4 ) );
    EXPECT_TRUE( nothingReceived( ) );
}

TEST_F( GVideoCaptureStreamTest, BadHostsAreToldAndAbortNothing )
{
    TestLog::expect( "WARNING: Assertion failed. (GValidHost( _sendToHost ))" );
    TestLog::expect( "WARNING: Assertion failed. (GValidHost( _sendFromHost ))" );
    TestLog::allow( "WARNING" );
    start( );
    GHTTPHeaders open = command( u"OPEN" );
    open.set( u"Send-To", u"" );
    open.set( u"Send-From", u"0.0.0.0:0" );
    run( open );
    video( 5000000 );
    audio( 5000000 );
}

TEST_F( GVideoCaptureStreamTest, ResetAndCloseSayWhatTheyDo )
{
    openStream( );
    video( 5000000 );
    audio( 5000000 );
    run( command( u"RESET" ) );
    EXPECT_TRUE( TestLog::contains( "Received 'RESET' request on stream 'ben@velmora.local@dev2" ) );
    EXPECT_TRUE( TestLog::contains( "Resetting stream, shutting down audio (YES), video (YES)" ) );
    EXPECT_TRUE( TestLog::contains( "Captured 2240 audio bytes" ) );
    EXPECT_TRUE( TestLog::contains( "Completed 'RESET' request on stream 'ben@velmora.local@dev2" ) );
    FakeCapture::get( ).calls.clear( );
    run( command( u"CLOSE" ) );
    EXPECT_TRUE(
        TestLog::contains( "Received 'CLOSE' request, stopping broadcast on stream 'ben@velmora.local@dev2" ) );
    EXPECT_EQ( FakeCapture::get( ).calls, ( std::vector<GString>{ "-audio", "-video" } ) );
}

TEST_F( GVideoCaptureStreamTest, PicturesGoOnCountingOverAResetAndSoundBeginsAnew )
{
    openStream( );
    video( 5000000 );
    audio( 5000000 );
    EXPECT_EQ( sequenceOf( received( ) ), 1 );
    EXPECT_EQ( sequenceOf( received( ) ), 1 );
    run( command( u"RESET" ) );
    video( 6000000 );
    EXPECT_EQ( sequenceOf( received( ) ), 2 );
    audio( 6000000 );
    EXPECT_EQ( sequenceOf( received( ) ), 1 );
}

TEST_F( GVideoCaptureStreamTest, AResetThatNamesNobodyChangesNobody )
{
    TestLog::expect( "WARNING Received 'RESET' request, but no stream named 'nobody'; ignoring." );
    openStream( );
    GHTTPHeaders reset = command( u"RESET", u"nobody" );
    reset.set( u"Audio-Enable", u"false" );
    run( reset );
    audio( 5000000 );
    EXPECT_FALSE( received( ).empty( ) );
}

TEST_F( GVideoCaptureStreamTest, TheSquareIsTheMiddleOfTheSource )
{
    struct Case
    {
        int width;
        int height;
        int edge;
        int left;
        int top;
    };
    for( const Case one : { Case{ 176, 144, 144, 16, 0 }, Case{ 150, 150, 144, 3, 3 }, Case{ 48, 90, 48, 0, 21 } } )
    {
        const GString whole = picture( one.width, one.height, 3 );
        GString middle;
        GImageCrop( { GIT_RGB24, one.width, one.height }, whole.data( ),
                    { one.left, one.top, one.left + one.edge, one.top + one.edge }, middle );
        if( !started ) start( );
        run( command( u"OPEN" ) );
        received( );
        show( 5000000, one.width, one.height, whole );
        const GString cropped = received( );
        run( command( u"OPEN" ) );
        received( );
        show( 6000000, one.edge, one.edge, middle );
        EXPECT_EQ( cropped.substr( HEADER ), received( ).substr( HEADER ) );
        run( restart( ) );
    }
    EXPECT_TRUE( TestLog::contains( "_imageFormat=( type=15, width=150, height=150 ) )" ) );
}

TEST_F( GVideoCaptureStreamTest, ASourceOfTheRightSizeIsNoWarning )
{
    openStream( );
    video( 5000000, 48, 60 );
    EXPECT_FALSE( received( ).empty( ) );
    EXPECT_FALSE( TestLog::contains( "Non-ideal" ) );
}

TEST_F( GVideoCaptureStreamTest, ChunksAreWholeCodecFrames )
{
    TestLog::expect( "WARNING: Assertion failed. (!(thisChunkSize % frameSize))" );
    openStream( );
    audio( 5000000, 2240 );
    EXPECT_EQ( samplesReceived( ), 1120 );
    audio( 5100000, 8960 ); // Half of it is above 1400 bytes of packet no more.
    EXPECT_EQ( samplesReceived( ), 2240 );
    EXPECT_EQ( samplesReceived( ), 2240 );
    audio( 5200000, 8800 ); // 13.75 frames, raised to 14; what remains ends in silence.
    EXPECT_EQ( samplesReceived( ), 2240 );
    EXPECT_EQ( samplesReceived( ), 2240 );
    EXPECT_EQ( TestLog::count( "(!(thisChunkSize % frameSize))" ), 1 );
    EXPECT_TRUE( nothingReceived( ) );
}

TEST_F( GVideoCaptureStreamTest, ABufferThatDoesNotDivideIsToldAndSent )
{
    TestLog::expect( "WARNING: Assertion failed. (!(length % numChunks))" );
    TestLog::allow( "WARNING: Assertion failed. (!(thisChunkSize % frameSize))" );
    openStream( );
    audio( 5000000, 8961 );
    EXPECT_FALSE( received( ).empty( ) );
    EXPECT_FALSE( received( ).empty( ) );
}

TEST_F( GVideoCaptureStreamTest, ShortBuffersAreSentAsFarAsTheyGo )
{
    TestLog::allow( "WARNING: Assertion failed. (!(thisChunkSize % frameSize))" );
    TestLog::expect( "WARNING Frame of 100 bytes is too short, ignoring." );
    openStream( );
    audio( 5000000, 0 );
    EXPECT_TRUE( nothingReceived( ) );
    audio( 5100000, 1 );
    EXPECT_FALSE( received( ).empty( ) );
    show( 5000000, 64, 64, GString( 100, 'x' ) );
    EXPECT_TRUE( nothingReceived( ) );
    video( 6000000, 64, 64 );
    EXPECT_FALSE( received( ).empty( ) );
}

TEST_F( GVideoCaptureStreamTest, AllChunksOfABufferBearItsTime )
{
    openStream( );
    audio( 5019999, 8960 );
    EXPECT_EQ( GReadU32( received( ).data( ) + 4 ), 501U );
    EXPECT_EQ( GReadU32( received( ).data( ) + 4 ), 501U );
}

TEST_F( GVideoCaptureStreamTest, AnotherRateOfTheSoundMakesTheEncoderAnew )
{
    openStream( );
    audio( 5000000, 2240, 22000 );
    EXPECT_EQ( GReadU32( received( ).data( ) + 12 ), 22000U );
    audio( 5100000, 2240, 16000 );
    const GString packet = received( );
    EXPECT_EQ( GReadU32( packet.data( ) + 12 ), 16000U );
    EXPECT_EQ( sequenceOf( packet ), 1 ); // As any reset of the sound.
    EXPECT_TRUE( TestLog::contains( "onAudioFormatSet( audioEnabled=" ) );
}

TEST_F( GVideoCaptureStreamTest, FramesAreTold )
{
    openStream( );
    video( 5000000 );
    audio( 5000000 );
    EXPECT_TRUE( TestLog::contains( "onVideoFormatSet( videoEnabled=" ) );
    EXPECT_TRUE( TestLog::contains( "Sending new video frame, timestamp=5000000 (" ) );
    EXPECT_TRUE( TestLog::contains( "Sending new audio frame, timestamp=5000000 (" ) );
}

TEST_F( GVideoCaptureStreamTest, AnImpossibleVideoSizeIsToldAndSentAsOneThatIsPossible )
{
    TestLog::expect( "WARNING Video_Size cannot be 50, taking 48." );
    openStream( );
    instance->set( u"Video_Size", 50 );
    video( 5000000 );
    EXPECT_EQ( GReadU32( received( ).data( ) + 12 ), 48U );
}

using GVideoCaptureStreamDeathTest = GVideoCaptureStreamTest;
TEST_F( GVideoCaptureStreamDeathTest, NoBufferIsOurMistake )
{
    openStream( );
    IGCaptureVideoListener* camera = FakeCapture::get( ).videoListeners( ).back( );
    IGCaptureAudioListener* microphone = FakeCapture::get( ).audioListeners( ).back( );
    EXPECT_DEATH( camera->onVideoFrame( 1, { GIT_RGB24, 64, 64 }, nullptr, 0 ), "buffer && length >= 0" );
    EXPECT_DEATH( microphone->onAudioFrame( 1, { 2, 22000, 1 }, nullptr, 0 ), "buffer && length >= 0" );
}
