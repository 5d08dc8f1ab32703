#include "platform/common/GAVCaptureChoice.h"

#include "support/TestLog.h"

#include <gtest/gtest.h>

namespace
{
GCaptureVideoCapability offer( const GString& subtype, GCaptureRange width, GCaptureRange height, GCaptureRange fps )
{
    GCaptureVideoCapability capability;
    capability.subtype = subtype;
    capability.width = width;
    capability.height = height;
    capability.fps = fps;
    return capability;
}
GCaptureAudioCapability sound( GCaptureRange bits, GCaptureRange frequency )
{
    GCaptureAudioCapability capability;
    capability.bits = bits;
    capability.frequency = frequency;
    return capability;
}
} // namespace

TEST( GAVCaptureChoice, SmallPictureOfALargeCameraTakesItsLeastSize )
{
    const std::vector<GCaptureVideoCapability> camera{ offer( "YUY2", { 160, 640 }, { 120, 480 }, { 10, 30 } ) };
    GCaptureVideoChoice choice;
    ASSERT_TRUE( GAVCaptureConfigureVideo( camera, "YUY2", 7, 48, 48, choice ) );
    EXPECT_EQ( choice.width, 160 );
    EXPECT_EQ( choice.height, 120 );
    EXPECT_EQ( choice.fps, 10 );
    EXPECT_EQ( choice.distance, 112 + 72 + 3 );
    EXPECT_TRUE( TestLog::contains( "Configuring Video Device: FPS=7, width=48, height=48" ) );
    EXPECT_TRUE( TestLog::contains( "New nearest match with #0: FPS=[10,30]" ) );
    EXPECT_TRUE( TestLog::contains( "subtype='YUY2'" ) );
    EXPECT_TRUE( TestLog::contains( "Done: Picked #0.  Configuring to( fps=10, width=160, height=120 )" ) );
}

TEST( GAVCaptureChoice, WishInsideARangeIsKept )
{
    const std::vector<GCaptureVideoCapability> camera{ offer( "YUY2", { 16, 640 }, { 16, 480 }, { 1, 30 } ) };
    GCaptureVideoChoice choice;
    ASSERT_TRUE( GAVCaptureConfigureVideo( camera, "YUY2", 7, 48, 64, choice ) );
    EXPECT_EQ( choice.width, 48 );
    EXPECT_EQ( choice.height, 64 );
    EXPECT_EQ( choice.fps, 7 );
    EXPECT_EQ( choice.distance, 0 );
}

TEST( GAVCaptureChoice, NearestWinsAndTheFirstOfEqualsStays )
{
    const std::vector<GCaptureVideoCapability> camera{ offer( "YUY2", { 640, 640 }, { 480, 480 }, { 30, 30 } ),
                                                       offer( "YUY2", { 176, 176 }, { 144, 144 }, { 15, 15 } ),
                                                       offer( "YUY2", { 160, 160 }, { 160, 160 }, { 15, 15 } ),
                                                       offer( "YUY2", { 320, 320 }, { 240, 240 }, { 15, 15 } ) };
    GCaptureVideoChoice choice;
    ASSERT_TRUE( GAVCaptureConfigureVideo( camera, "YUY2", 15, 48, 48, choice ) );
    EXPECT_EQ( choice.index, 1 );
    EXPECT_EQ( TestLog::count( "New nearest match with #" ), 2 );
}

TEST( GAVCaptureChoice, ValuesAboveARangeCountAsWell )
{
    const std::vector<GCaptureVideoCapability> camera{ offer( "YUY2", { 32, 40 }, { 32, 48 }, { 1, 5 } ) };
    GCaptureVideoChoice choice;
    ASSERT_TRUE( GAVCaptureConfigureVideo( camera, "YUY2", 7, 48, 48, choice ) );
    EXPECT_EQ( choice.distance, 8 + 2 );
    EXPECT_EQ( choice.width, 40 );
    EXPECT_EQ( choice.fps, 5 );
}

TEST( GAVCaptureChoice, OtherMediaSubtypesAndMemoriesDoNotCount )
{
    TestLog::expect( "WARNING No match found" );
    std::vector<GCaptureVideoCapability> camera( 3, offer( "YUY2", { 48, 48 }, { 48, 48 }, { 7, 7 } ) );
    camera[0].isVideo = false;
    camera[1].isPlain = false;
    camera[2].subtype = "I420";
    GCaptureVideoChoice choice;
    EXPECT_FALSE( GAVCaptureConfigureVideo( camera, "YUY2", 7, 48, 48, choice ) );
    EXPECT_EQ( choice.index, -1 );
}

TEST( GAVCaptureChoice, CameraThatTellsNothingHasNoMatch )
{
    TestLog::expect( "WARNING GetNumberOfCapabilities( ) returned insufficient data (iCount=0, iSize=0" );
    GCaptureVideoChoice choice;
    EXPECT_FALSE( GAVCaptureConfigureVideo( { }, "YUY2", 7, 48, 48, choice ) );
}

TEST( GAVCaptureChoice, CameraWithOnlyRGB24IsTakenAtTheSecondTry )
{
    TestLog::expect( "WARNING No match found" );
    const std::vector<GCaptureVideoCapability> camera{ offer( "I420", { 48, 48 }, { 48, 48 }, { 7, 7 } ),
                                                       offer( "RGB24", { 160, 160 }, { 120, 120 }, { 7, 7 } ) };
    GCaptureVideoChoice choice;
    ASSERT_TRUE( GAVCaptureChooseVideo( camera, 7, 48, 48, choice ) );
    EXPECT_EQ( choice.index, 1 );
    EXPECT_EQ( choice.subtype, "RGB24" );
    EXPECT_EQ( TestLog::count( "Configuring Video Device: FPS=" ), 2 );
}

TEST( GAVCaptureChoice, PackedYUVIsPreferredWhateverItsDistance )
{
    const std::vector<GCaptureVideoCapability> camera{ offer( "RGB24", { 48, 48 }, { 48, 48 }, { 7, 7 } ),
                                                       offer( "YUY2", { 640, 640 }, { 480, 480 }, { 30, 30 } ) };
    GCaptureVideoChoice choice;
    ASSERT_TRUE( GAVCaptureChooseVideo( camera, 7, 48, 48, choice ) );
    EXPECT_EQ( choice.subtype, "YUY2" );
}

TEST( GAVCaptureChoice, CameraWithNeitherFormatIsTakenAsItIs )
{
    TestLog::expect( "WARNING No match found" );
    TestLog::expect( "WARNING Unable to configure video device; taking 'as is' and seeing if it works." );
    GCaptureVideoChoice choice;
    EXPECT_FALSE(
        GAVCaptureChooseVideo( { offer( "image/jpeg", { 640, 640 }, { 480, 480 }, { 30, 30 } ) }, 7, 48, 48, choice ) );
}

TEST( GAVCaptureChoice, FirstAudioCapabilityThatHoldsTheWishIsTaken )
{
    std::vector<GCaptureAudioCapability> microphone{
        sound( { 8, 8 }, { 8000, 48000 } ), sound( { 16, 16 }, { 44100, 48000 } ), sound( { 16, 16 }, { 8000, 48000 } ),
        sound( { 8, 16 }, { 8000, 48000 } ) };
    EXPECT_EQ( GAVCaptureConfigureAudio( microphone, 22000, 2, 50 ), 2 );
    EXPECT_TRUE( TestLog::contains( "Configuring audio device: frequency=22000, bits=16, latency=50" ) );
    EXPECT_TRUE( TestLog::contains( " - frequency=[8000,48000], bits=[16,16]" ) );
    microphone[2].isPCM = false;
    EXPECT_EQ( GAVCaptureConfigureAudio( microphone, 22000, 2, 50 ), 3 );
    microphone[3].isPlain = false;
    EXPECT_EQ( GAVCaptureConfigureAudio( microphone, 22000, 2, 50 ), -1 );
    EXPECT_EQ( GAVCaptureConfigureAudio( microphone, 48000, 2, 50 ), 1 ) << "bounds are inside";
}

TEST( GAVCaptureChoiceDeathTest, AudioNeedsACapability )
{
    EXPECT_DEATH( GAVCaptureConfigureAudio( { }, 22000, 2, 50 ), "iCount > 0" );
}

TEST( GAVCaptureChoice, AudioFramesAreWholeCodecFrames )
{
    EXPECT_EQ( GAVCaptureBufferSize( 22000, 2, 50 ), 2240 );
    EXPECT_EQ( GAVCaptureBufferSize( 8000, 2, 20 ), 320 ) << "a multiple stays";
    EXPECT_EQ( GAVCaptureBufferSize( 8000, 2, 50 ), 960 );
    EXPECT_EQ( GAVCaptureBufferSize( 48000, 2, 50 ), 4800 );
    EXPECT_EQ( GAVCaptureBufferSize( 22000, 1, 50 ), 1120 );
    EXPECT_EQ( GAVCaptureBufferSize( 22000, 2, 0 ), 320 ) << "one codec frame at least";
    EXPECT_EQ( GAVCaptureBufferSize( 1000000, 2, 1000 ), 2000000 ) << "no overflow on the way";
}

TEST( GAVCaptureChoice, TimeOfAFrameLeadsBackToItsBytes )
{
    EXPECT_EQ( GAVCaptureTimeOf( 320, 22000, 2 ), 7273 );
    for( const int frequency : { 8000, 16000, 22000, 44100, 48000 } )
        for( const int bytes : { 320, 640, 960, 2240 } )
            EXPECT_EQ( static_cast<int64_t>( GAVCaptureTimeOf( bytes, frequency, 2 ) ) * frequency * 2 / 1000000,
                       bytes );
}

TEST( GAVCaptureChoice, ShortFramesAreTheMostCodecFramesWithinTheTime )
{
    EXPECT_EQ( GAVCaptureBufferSizeWithin( 22000, 2, 15 ), 640 );
    EXPECT_EQ( GAVCaptureBufferSizeWithin( 22000, 2, 14 ), 320 );
    EXPECT_EQ( GAVCaptureBufferSizeWithin( 22000, 2, 1 ), 320 );
    EXPECT_EQ( GAVCaptureBufferSizeWithin( 16000, 2, 20 ), 640 );
    EXPECT_EQ( GAVCaptureBufferSizeWithin( 22000, 2, 50 ), 1920 );
}
