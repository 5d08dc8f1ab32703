#include "CaptureFixture.h"
#include "support/CountAllocations.h"

TEST_F( GVideoCapture, PreviewShowsThePictureOnceASecond )
{
    start( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    video( 5000000 );
    EXPECT_EQ( 160U * 120U * 3U, instance->getRaw( u"Local_Video_Image" ).size( ) );
    const uint64_t stamp = instance->getTimestamp( u"Local_Video_Image" );
    now += 500000;
    video( 5500000 );
    EXPECT_EQ( stamp, instance->getTimestamp( u"Local_Video_Image" ) );
    now += 600000;
    video( 6100000 );
    EXPECT_NE( stamp, instance->getTimestamp( u"Local_Video_Image" ) );
}

TEST_F( GVideoCapture, PreviewIsStaticUntilAPictureComes )
{
    start( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    const GString first = instance->getRaw( u"Local_Video_Image" );
    EXPECT_EQ( 57600U, first.size( ) );
    now += 1000001;
    service->_bGThreadObject_safe_onLoop( );
    EXPECT_NE( first, instance->getRaw( u"Local_Video_Image" ) );
}

TEST_F( GVideoCapture, TheFirstPictureReplacesTheStaticAfterItsSecond )
{
    start( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    const uint64_t noise = instance->getTimestamp( u"Local_Video_Image" );
    now += 200000;
    video( 200000 );
    EXPECT_EQ( noise, instance->getTimestamp( u"Local_Video_Image" ) );
    now += 900000;
    video( 1100000 );
    EXPECT_NE( noise, instance->getTimestamp( u"Local_Video_Image" ) );
}

TEST_F( GVideoCapture, WithTheRemedyTheFirstPictureReplacesTheStaticAtOnce )
{
    instance->set( u"Robust_Media", 1 );
    start( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    const uint64_t noise = instance->getTimestamp( u"Local_Video_Image" );
    now += 200000;
    video( 200000 );
    const uint64_t first = instance->getTimestamp( u"Local_Video_Image" );
    EXPECT_NE( noise, first );
    now += 400000;
    video( 600000 );
    EXPECT_EQ( first, instance->getTimestamp( u"Local_Video_Image" ) );
}

TEST_F( GVideoCapture, SilenceIsABandOfHalfTheHeight )
{
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    const GString silence( 2240, '\0' );
    for( IGCaptureAudioListener* listener : FakeCapture::get( ).audioListeners( ) )
        listener->onAudioFrame( 1, { 2, 22000, 1 }, silence.data( ), 2240 );
    const GString image = instance->getRaw( u"Local_Audio_Image" );
    ASSERT_EQ( 300U * 100U * 3U, image.size( ) );
    int green = 0;
    for( int y = 0; y < 100; ++y ) green += image[static_cast<size_t>( y * 900 + 1 )] == '\xFF';
    EXPECT_EQ( 50, green );
    EXPECT_EQ( '\xFF', image[static_cast<size_t>( 25 * 900 + 1 )] );
}

// ---- The level of the microphone.

class MicrophoneLevel : public GVideoCapture
{
protected:
    void sound( int16_t amplitude )
    {
        GString samples;
        for( int i = 0; i < 440; ++i )
        {
            const int16_t sample = i % 2 ? amplitude : static_cast<int16_t>( -amplitude );
            samples.append( reinterpret_cast<const char*>( &sample ), 2 );
        }
        now += 20000;
        for( IGCaptureAudioListener* listener : FakeCapture::get( ).audioListeners( ) )
            listener->onAudioFrame( now, { 2, 22000, 1 }, samples.data( ), static_cast<int>( samples.size( ) ) );
    }
    int level( ) { return static_cast<int>( instance->calc( u"Audio_Capture_Level" ) ); }
};

TEST_F( MicrophoneLevel, IsTheLoudnessInDecibels )
{
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 1000000;
    sound( 32767 );
    EXPECT_EQ( level( ), 100 );
    now += 100000;
    sound( 3277 ); // 20 below full scale.
    EXPECT_EQ( level( ), 67 );
    now += 100000;
    sound( 33 ); // 60 below.
    EXPECT_EQ( level( ), 0 );
}

TEST_F( MicrophoneLevel, IsToldAtMost15TimesASecondAndMissesNoPeak )
{
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 1000000;
    int changes = 0;
    int before = 0;
    for( int i = 0; i < 50; ++i )
    {
        sound( static_cast<int16_t>( 1000 + 500 * i ) );
        changes += level( ) != before;
        before = level( );
    }
    EXPECT_LE( changes, 15 );
    EXPECT_GT( changes, 5 );
    now += 100000;
    sound( 0 );
    sound( 32767 );
    EXPECT_LT( level( ), 100 );
    sound( 0 );
    sound( 0 );
    sound( 0 );
    EXPECT_EQ( level( ), 100 );
}

TEST_F( MicrophoneLevel, RestsUnlessThePreviewOrSomebodyListens )
{
    start( );
    now += 1000000;
    sound( 32767 );
    EXPECT_FALSE( instance->isSet( u"Audio_Capture_Level" ) );
    instance->set( u"Talking_To_List", u"ben" );
    sound( 32767 );
    EXPECT_EQ( level( ), 100 );
    instance->clear( u"Talking_To_List" );
    sound( 32767 );
    EXPECT_EQ( level( ), 0 );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 100000;
    sound( 32767 );
    EXPECT_EQ( level( ), 100 );
    run( GHTTPHeaders( u"STOPAUDIOPREVIEW" ) );
    sound( 32767 );
    EXPECT_EQ( level( ), 0 );
    instance->set( u"Disable_Preview", u"1" );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 100000;
    sound( 32767 );
    EXPECT_EQ( level( ), 0 );
}

TEST_F( MicrophoneLevel, FallsWhenTheDeviceGoes )
{
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 1000000;
    sound( 32767 );
    EXPECT_EQ( level( ), 100 );
    GHTTPHeaders again( u"START" );
    again.set( u"Audio_Capture_Device", NO_AUDIO );
    run( again );
    EXPECT_EQ( level( ), 0 );
}

TEST_F( MicrophoneLevel, TakesNothingFromTheHeap )
{
    start( );
    instance->set( u"Talking_To_List", u"ben@velmora.local, ann@velmora.local" );
    now += 1000000;
    sound( 32767 );
    IGCaptureAudioListener* listener = FakeCapture::get( ).audioListeners( ).front( );
    const GString loud = tone( 440 );
    const GString quiet( 880, '\0' );
    const auto work = [&]
    {
        for( int i = 0; i < 100; ++i )
        {
            now += 20000;
            listener->onAudioFrame( now, { 2, 22000, 1 }, i % 8 < 4 ? loud.data( ) : quiet.data( ), 880 );
        }
    };
    work( );
    EXPECT_EQ( countAllocations( work ), 0 );
}

TEST_F( GVideoCapture, DisabledPreviewWritesNothing )
{
    instance->set( u"Disable_Preview", u"1" );
    start( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    video( 5000000 );
    EXPECT_FALSE( instance->isSet( u"Local_Video_Image" ) );
}

// ---- The pictures, to the letter.

class GLocalCapturePictures : public GVideoCapture
{
protected:
    void sound( const std::vector<int16_t>& samples, int bytesPerSample = 2 )
    {
        for( IGCaptureAudioListener* listener : FakeCapture::get( ).audioListeners( ) )
            listener->onAudioFrame( 1, { bytesPerSample, 22000, 1 }, reinterpret_cast<const char*>( samples.data( ) ),
                                    static_cast<int>( samples.size( ) * 2 ) );
    }
    // Green rows of a column of the level picture: the first and how many.
    std::pair<int, int> band( int x, int width )
    {
        const GString image = instance->getRaw( u"Local_Audio_Image" );
        int first = -1;
        int count = 0;
        for( int y = 0; y < 100; ++y )
        {
            const char* pixel = image.data( ) + static_cast<ptrdiff_t>( 3 ) * ( y * width + x );
            EXPECT_TRUE( !pixel[0] && !pixel[2] );
            if( !pixel[1] ) continue;
            if( first < 0 ) first = y;
            ++count;
        }
        return { first, count };
    }
};

TEST_F( GLocalCapturePictures, AColumnIsAsHighAsItsSample )
{
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    sound( { 32767, -32768, 0, 16384, -16384 } );
    EXPECT_EQ( instance->getRaw( u"Local_Audio_Image" ).size( ), 5U * 100U * 3U );
    EXPECT_EQ( band( 0, 5 ), std::make_pair( 0, 100 ) );
    EXPECT_EQ( band( 1, 5 ), std::make_pair( -1, 0 ) );
    EXPECT_EQ( band( 2, 5 ), std::make_pair( 25, 50 ) );
    EXPECT_EQ( band( 3, 5 ), std::make_pair( 12, 75 ) );
    EXPECT_EQ( band( 4, 5 ), std::make_pair( 37, 25 ) );
}

TEST_F( GLocalCapturePictures, TheLevelIsDrawnOnceASecondWhileItIsWanted )
{
    start( );
    const auto stamp = [this] { return instance->getTimestamp( u"Local_Audio_Image" ); };
    const uint64_t untouched = stamp( );
    now += 10;
    sound( { 1, 2 } );
    EXPECT_EQ( stamp( ), untouched );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    sound( { 1, 2 } );
    const uint64_t first = stamp( );
    EXPECT_NE( first, untouched );
    now += 1000000;
    sound( { 1, 2 } );
    EXPECT_EQ( stamp( ), first );
    now += 1;
    sound( { 1, 2 } );
    const uint64_t second = stamp( );
    EXPECT_NE( second, first );
    run( GHTTPHeaders( u"STOPAUDIOPREVIEW" ) );
    now += 2000000;
    sound( { 1, 2 } );
    EXPECT_EQ( stamp( ), second );
}

TEST_F( GLocalCapturePictures, FormatsAreToldWhenTheyChange )
{
    GLogSetFilter( "v" );
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    for( uint64_t i = 1; i < 4; ++i )
    {
        now += 2000000;
        sound( { 1, 2 } );
        video( i * 2000000 );
    }
    GLogSetFilter( "" );
    EXPECT_EQ( TestLog::count( "AUDIOFORMAT: frequency=22000Hz, bits=16" ), 1 );
    EXPECT_EQ( TestLog::count( "VIDEOFORMAT: type=#15, dimensions=(160x120)" ), 1 );
}

TEST_F( GLocalCapturePictures, StaticIsGrayAndEndsWithTheFirstPicture )
{
    start( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    const GString noise = instance->getRaw( u"Local_Video_Image" );
    ASSERT_EQ( noise.size( ), 57600U );
    std::set<char> values;
    for( size_t i = 0; i < noise.size( ); i += 3 )
    {
        ASSERT_TRUE( noise[i] == noise[i + 1] && noise[i] == noise[i + 2] );
        values.insert( noise[i] );
    }
    EXPECT_GT( values.size( ), 100U );
    const auto stamp = [this] { return instance->getTimestamp( u"Local_Video_Image" ); };
    const uint64_t first = stamp( );
    now += 1000000;
    service->_bGThreadObject_safe_onLoop( );
    EXPECT_EQ( stamp( ), first );
    now += 1;
    video( 1 );
    EXPECT_EQ( instance->getRaw( u"Local_Video_Image" ), picture( 160, 120, 0 ) );
    const uint64_t real = stamp( );
    now += 2000000;
    service->_bGThreadObject_safe_onLoop( );
    EXPECT_EQ( stamp( ), real );
}

TEST_F( GLocalCapturePictures, ARestartGoesBackToTheDefaultPictureAndTheStatic )
{
    start( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    now += 2000000;
    video( 5000000 );
    const GString real = instance->getRaw( u"Local_Video_Image" );
    run( restart( ) );
    EXPECT_NE( instance->getRaw( u"Local_Video_Image" ), real );
    now += 2000000;
    video( 1000000 ); // The stamps may begin again, too.
    EXPECT_EQ( instance->getRaw( u"Local_Video_Image" ).size( ), 57600U );
}

TEST_F( GLocalCapturePictures, AShortPictureIsNotShown )
{
    start( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    const uint64_t noise = instance->getTimestamp( u"Local_Video_Image" );
    now += 2000000;
    const GString pixels( 100, 'x' );
    for( IGCaptureVideoListener* listener : FakeCapture::get( ).videoListeners( ) )
        listener->onVideoFrame( 1, { GIT_RGB24, 160, 120 }, pixels.data( ), 100 );
    EXPECT_EQ( instance->getTimestamp( u"Local_Video_Image" ), noise );
}

using GLocalCaptureDeathTest = GLocalCapturePictures;
TEST_F( GLocalCaptureDeathTest, OtherSamplesThanWordsAreOurMistake )
{
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    EXPECT_DEATH( sound( { 1, 2 }, 1 ), "ERROR Attempting encoding of unsupported wave bpp 8, aborting." );
}

TEST_F( GLocalCaptureDeathTest, StampsThatDoNotRiseAreOurMistake )
{
    start( );
    video( 5000000 );
    EXPECT_DEATH( video( 5000000 ), "timestamp > _myLastFrameOutputTimestamp" );
}
