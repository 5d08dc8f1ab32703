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
