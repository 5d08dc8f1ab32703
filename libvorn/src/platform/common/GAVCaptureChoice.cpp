#include "platform/common/GAVCaptureChoice.h"

#include "base/GPortable.h"

#include <algorithm>

namespace
{
constexpr int CODEC_SAMPLES = 160;
constexpr int BITS_PER_BYTE = 8;

bool counts( const GCaptureVideoCapability& capability, std::string_view subtype )
{
    return capability.isVideo && capability.isPlain && capability.subtype == subtype;
}

GWString describe( const GCaptureRange& range )
{
    return GConcat( u"[", range.least, u",", range.greatest, u"]" );
}
} // namespace

double GCaptureRange::distance( double value ) const
{
    return value < least ? least - value : value > greatest ? value - greatest : 0;
}

double GCaptureRange::fit( double value ) const
{
    return value < least ? least : value > greatest ? greatest : value;
}

bool GAVCaptureConfigureVideo( const std::vector<GCaptureVideoCapability>& capabilities, std::string_view subtype,
                               int fps, int width, int height, GCaptureVideoChoice& choice )
{
    GLOG( u"Configuring Video Device: FPS=", fps, u", width=", width, u", height=", height );
    if( capabilities.empty( ) )
    {
        GLOG( u"WARNING GetNumberOfCapabilities( ) returned insufficient data (iCount=", 0, u", iSize=", 0,
              u", sizeof(VIDEO_STREAM_CONFIG_CAPS)=", sizeof( GCaptureVideoCapability ), u"), no match found." );
        return false;
    }
    int nearest = -1;
    double least = 0;
    for( size_t i = 0; i < capabilities.size( ); i++ )
    {
        const GCaptureVideoCapability& offer = capabilities[i];
        if( !counts( offer, subtype ) ) continue;
        const double distance =
            offer.width.distance( width ) + offer.height.distance( height ) + offer.fps.distance( fps );
        if( nearest >= 0 && distance >= least ) continue;
        nearest = static_cast<int>( i );
        least = distance;
        GLOG( u"New nearest match with #", i, u": FPS=", describe( offer.fps ), u", width=", describe( offer.width ),
              u", height=", describe( offer.height ), u", distance=", distance, u", subtype='", subtype, u"'" );
    }
    if( nearest < 0 )
    {
        GLOG( u"WARNING No match found" );
        return false;
    }
    const GCaptureVideoCapability& winner = capabilities[static_cast<size_t>( nearest )];
    choice = { nearest,
               GString( subtype ),
               least,
               winner.fps.fit( fps ),
               static_cast<int>( winner.width.fit( width ) ),
               static_cast<int>( winner.height.fit( height ) ) };
    GLOG( u"Done: Picked #", nearest, u".  Configuring to( fps=", choice.fps, u", width=", choice.width, u", height=",
          choice.height, u" )" );
    return true;
}

bool GAVCaptureChooseVideo( const std::vector<GCaptureVideoCapability>& capabilities, int fps, int width, int height,
                            GCaptureVideoChoice& choice )
{
    for( const std::string_view subtype : { "YUY2", "RGB24" } )
        if( GAVCaptureConfigureVideo( capabilities, subtype, fps, width, height, choice ) ) return true;
    GLOG( u"WARNING Unable to configure video device; taking 'as is' and seeing if it works." );
    return false;
}

int GAVCaptureConfigureAudio( const std::vector<GCaptureAudioCapability>& capabilities, int frequency,
                              int bytesPerSample, int latency )
{
    const int bits = bytesPerSample * BITS_PER_BYTE;
    GLOG( u"Configuring audio device: frequency=", frequency, u", bits=", bits, u", latency=", latency );
    const size_t iCount = capabilities.size( );
    GASSERT( iCount > 0 );
    for( size_t i = 0; i < iCount; i++ )
    {
        const GCaptureAudioCapability& offer = capabilities[i];
        if( !offer.isAudio || !offer.isPCM || !offer.isPlain || !offer.bits.holds( bits ) ||
            !offer.frequency.holds( frequency ) )
            continue;
        GLOG( u"Picked #", i, u" - frequency=[", offer.frequency.least, u",", offer.frequency.greatest, u"], bits=[",
              offer.bits.least, u",", offer.bits.greatest, u"]" );
        return static_cast<int>( i );
    }
    return -1;
}

int GAVCaptureBufferSize( int frequency, int bytesPerSample, int latency )
{
    GPRECONDITION( frequency > 0 && bytesPerSample > 0 && latency >= 0 );
    const int64_t FRAME_SIZE = static_cast<int64_t>( bytesPerSample ) * CODEC_SAMPLES;
    const int64_t wanted = static_cast<int64_t>( frequency ) * bytesPerSample * latency / 1000;
    const int64_t cbBuffer = std::max<int64_t>( 1, ( wanted + FRAME_SIZE - 1 ) / FRAME_SIZE ) * FRAME_SIZE;
    GASSERT_TEXT( !( cbBuffer % FRAME_SIZE ), "!(allocatorProperties.cbBuffer%FRAME_SIZE)" );
    return static_cast<int>( cbBuffer );
}

int GAVCaptureBufferSizeWithin( int frequency, int bytesPerSample, int latency )
{
    GPRECONDITION( frequency > 0 && bytesPerSample > 0 && latency >= 0 );
    const int64_t frames = static_cast<int64_t>( frequency ) * latency / 1000 / CODEC_SAMPLES;
    return static_cast<int>( std::max<int64_t>( 1, frames ) * CODEC_SAMPLES * bytesPerSample );
}

int GAVCaptureTimeOf( int bytes, int frequency, int bytesPerSample )
{
    GPRECONDITION( bytes >= 0 && frequency > 0 && bytesPerSample > 0 );
    const int64_t second = static_cast<int64_t>( frequency ) * bytesPerSample;
    return static_cast<int>( ( bytes * int64_t( 1000000 ) + second - 1 ) / second );
}
