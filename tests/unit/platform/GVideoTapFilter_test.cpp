#include "platform/common/GVideoTapFilter.h"

#include "platform/GThread.h"
#include "support/CountAllocations.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace
{
struct Viewer : public IGCaptureVideoListener
{
    void onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length ) override
    {
        ++frames;
        stamp = timestamp;
        lastFormat = format;
        address = buffer;
        picture.assign( buffer, static_cast<size_t>( length ) );
    }
    int frames = 0;
    uint64_t stamp = 0;
    GImageFormat lastFormat;
    const char* address = nullptr;
    GString picture;
};

struct GVideoTapFilter : public testing::Test
{
    ~GVideoTapFilter( ) override
    {
        if( !tap.listeners.empty( ) ) tap.listeners.remove( &viewer );
    }
    void show( const GString& pixels, int64_t stride = 0 )
    {
        GCaptureSample sample;
        sample.hasTime = true;
        sample.time = time += 1000;
        sample.data = pixels.data( );
        sample.length = static_cast<int64_t>( pixels.size( ) );
        sample.stride = stride;
        tap.Transform( sample );
    }
    _GVideoTapFilter tap;
    Viewer viewer;
    int64_t time = 0;
};

GBitmapInfoHeader rgb( int width, int height )
{
    return { width, height, 24, GBC_RGB, 0, 0 };
}
GBitmapInfoHeader yuy2( int width, int height )
{
    return { width, height, 16, GBC_YUY2, 0, 0 };
}
} // namespace

TEST_F( GVideoTapFilter, OnlyTheTwoFormatsOfTheRightDepthAreTaken )
{
    TestLog::expect( "ERROR Unsupported bitdepth: 8" );
    EXPECT_TRUE( _GVideoTapFilter::checkInputType( rgb( 4, 4 ) ) );
    EXPECT_TRUE( _GVideoTapFilter::checkInputType( yuy2( 4, 4 ) ) );
    EXPECT_FALSE( _GVideoTapFilter::checkInputType( { 4, 4, 12, GBC_YUY2, 0, 0 } ) );
    EXPECT_FALSE( _GVideoTapFilter::checkInputType( { 4, 4, 24, GBC_BITFIELDS, 0xFF0000, 0x00FF00 } ) );
    EXPECT_FALSE( _GVideoTapFilter::checkInputType( { 4, 4, 32, GBC_RGB, 0, 0 } ) );
    EXPECT_FALSE( _GVideoTapFilter::checkInputType( { 4, 4, 16, GBC_RGB, 0, 0 } ) );
    EXPECT_FALSE( tap.completeConnect( { 4, 4, 8, GBC_RGB, 0, 0 } ) );
    EXPECT_FALSE( tap.isConnected( ) );
}

TEST_F( GVideoTapFilter, BottomUpPictureReachesTheListenerTopDown )
{
    ASSERT_TRUE( tap.completeConnect( rgb( 2, 3 ) ) );
    EXPECT_TRUE( TestLog::contains( "Flipping input image: yes" ) );
    tap.listeners.add( &viewer );
    show( "111111222222333333" );
    EXPECT_EQ( viewer.picture, "333333222222111111" );
    EXPECT_EQ( viewer.lastFormat, ( GImageFormat{ GIT_RGB24, 2, 3 } ) );
}

TEST_F( GVideoTapFilter, TightTopDownPictureIsNotCopied )
{
    ASSERT_TRUE( tap.completeConnect( yuy2( 2, -2 ) ) );
    EXPECT_TRUE( TestLog::contains( "Flipping input image: no" ) );
    tap.listeners.add( &viewer );
    const GString pixels = "11112222";
    show( pixels );
    EXPECT_EQ( viewer.address, pixels.data( ) );
    EXPECT_EQ( viewer.stamp, 100U );
    show( pixels, 4 );
    EXPECT_EQ( viewer.address, pixels.data( ) );
}

TEST_F( GVideoTapFilter, PaddingOfRowsIsCutWithOrWithoutThatOfTheLast )
{
    ASSERT_TRUE( tap.completeConnect( rgb( 1, -2 ) ) );
    tap.listeners.add( &viewer );
    show( "111.222.", 4 );
    EXPECT_EQ( viewer.picture, "111222" );
    show( "333.444", 4 );
    EXPECT_EQ( viewer.picture, "333444" );
}

TEST_F( GVideoTapFilter, PaddedBottomUpPictureIsTurned )
{
    ASSERT_TRUE( tap.completeConnect( rgb( 1, 2 ) ) );
    tap.listeners.add( &viewer );
    show( "111.222.", 4 );
    EXPECT_EQ( viewer.picture, "222111" );
}

TEST_F( GVideoTapFilter, WrongLengthIsDroppedAndToldOnce )
{
    TestLog::expect( "WARNING Invalid image length, should be 12bytes, is 11 (type #15, 2x2).  Only reporting once." );
    ASSERT_TRUE( tap.completeConnect( rgb( 2, -2 ) ) );
    tap.listeners.add( &viewer );
    for( const size_t length : { 11, 13, 0, 6 } ) show( GString( length, 'x' ) );
    show( GString( 11, 'x' ), 8 );
    show( GString( 17, 'x' ), 8 );
    show( GString( 12, 'x' ), 5 );
    show( GString( 12, 'x' ), -6 );
    EXPECT_EQ( viewer.frames, 0 );
    EXPECT_EQ( TestLog::count( "WARNING Invalid image length" ), 1 );
    show( GString( 12, 'x' ) );
    EXPECT_EQ( viewer.frames, 1 );
}

TEST_F( GVideoTapFilter, UnreadableSampleIsDroppedAndToldOnce )
{
    TestLog::expect( "WARNING Unable to get sample pointer, only reporting once.  Error 5" );
    ASSERT_TRUE( tap.completeConnect( rgb( 2, -2 ) ) );
    tap.listeners.add( &viewer );
    GCaptureSample sample;
    sample.hasTime = true;
    sample.error = 5;
    tap.Transform( sample );
    tap.Transform( sample );
    EXPECT_EQ( viewer.frames, 0 );
    EXPECT_EQ( TestLog::count( "WARNING Unable to get sample pointer" ), 1 );
}

TEST_F( GVideoTapFilter, SecondFormatIsRefusedUntilTheFirstIsBack )
{
    TestLog::expect( "!memcmp( &_bitmapInfoHeader, &testBIH, sizeof(BITMAPINFOHEADER) )" );
    ASSERT_TRUE( tap.completeConnect( rgb( 2, -2 ) ) );
    tap.listeners.add( &viewer );
    EXPECT_FALSE( tap.completeConnect( rgb( 2, 2 ) ) ) << "another orientation is another format";
    EXPECT_FALSE( tap.completeConnect( rgb( 4, -4 ) ) );
    EXPECT_EQ( TestLog::count( "!memcmp" ), 1 );
    show( GString( 48, 'x' ) );
    show( GString( 12, 'x' ) );
    EXPECT_EQ( viewer.frames, 0 );
    EXPECT_FALSE( tap.isConnected( ) );
    EXPECT_TRUE( tap.completeConnect( rgb( 2, -2 ) ) );
    show( GString( 12, 'x' ) );
    EXPECT_EQ( viewer.frames, 1 );
    EXPECT_EQ( TestLog::count( "Flipping input image: " ), 1 );
}

TEST_F( GVideoTapFilter, SamplesBeforeAndAfterTheConnectionAreDropped )
{
    tap.listeners.add( &viewer );
    show( GString( 12, 'x' ) );
    ASSERT_TRUE( tap.completeConnect( rgb( 2, -2 ) ) );
    show( GString( 12, 'x' ) );
    tap.disconnect( );
    EXPECT_FALSE( tap.isConnected( ) );
    show( GString( 12, 'x' ) );
    EXPECT_EQ( viewer.frames, 1 );
}

TEST_F( GVideoTapFilter, ListenerThatHasGoneGetsNoFurtherFrames )
{
    ASSERT_TRUE( tap.completeConnect( rgb( 1, -1 ) ) );
    Viewer other;
    tap.listeners.add( &viewer );
    tap.listeners.add( &other );
    show( "abc" );
    tap.listeners.remove( &viewer );
    show( "def" );
    EXPECT_EQ( viewer.frames, 1 );
    EXPECT_EQ( other.frames, 2 );
    tap.listeners.remove( &other );
    EXPECT_TRUE( tap.listeners.empty( ) );
}

TEST_F( GVideoTapFilter, ItsThreadStandsInTheThreadTable )
{
    ASSERT_TRUE( tap.completeConnect( rgb( 1, -1 ) ) );
    const auto work = []( void* argument )
    {
        GVideoTapFilter& self = *static_cast<GVideoTapFilter*>( argument );
        self.show( "abc" );
        int entries = 0;
        for( const GThreadTime& thread : GThreadListTimes( ) )
            entries += thread.thread == GThreadGetCurrent( ) && thread.name == u"_GVideoTapFilter";
        self.tap.listeners.add( &self.viewer );
        self.show( "abc" );
        self.viewer.frames += 100 * entries;
        return 0;
    };
    GThreadClose( GThreadOpen( u"Streaming", work, this ) );
    EXPECT_EQ( viewer.frames, 101 );
}

TEST_F( GVideoTapFilter, FramesAllocateNothingInTheSteadyState )
{
    ASSERT_TRUE( tap.completeConnect( rgb( 160, 120 ) ) );
    tap.listeners.add( &viewer );
    const GString pixels( 160 * 120 * 3, 'x' );
    show( pixels );
    const auto watch = [&]
    {
        for( int i = 0; i < 10; i++ ) show( pixels );
    };
    EXPECT_EQ( countAllocations( watch ), 0 );
    EXPECT_EQ( viewer.frames, 11 );
}

TEST( GVideoTapFilterDeathTest, ListenerMustBeThereToGo )
{
    _GVideoTapFilter tap;
    Viewer viewer;
    EXPECT_DEATH( tap.listeners.remove( &viewer ), "it != _listenerList.end\\( \\)" );
    EXPECT_DEATH( tap.listeners.add( nullptr ), "listener" );
}
