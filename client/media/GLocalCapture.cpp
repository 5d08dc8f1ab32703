#include "client/media/GLocalCapture.h"

#include "base/GBytes.h"
#include "base/GRandom.h"
#include "client/drawing/GImageTools.h"
#include "image/GImage.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cmath>

namespace
{
constexpr uint64_t PREVIEW_PERIOD = 1000000;
constexpr uint64_t LEVEL_PERIOD = 1000000 / 15;
constexpr int FULL_LEVEL = 100;
constexpr int LEVEL_WIDTH = 300;
constexpr int LEVEL_HEIGHT = 100;
constexpr GImageFormat STATIC_FORMAT = { GIT_RGB24, 160, 120 };

// The effective value of 16-bit samples on a scale of decibels: 0 at 60 below full scale and less, 100 at full scale.
int levelOf( const char* buffer, int samples )
{
    constexpr double FULL_SCALE = 32768;
    constexpr double RANGE = 60;
    double sum = 0;
    for( int i = 0; i < samples; ++i )
    {
        const double sample = static_cast<int16_t>( GReadU16( buffer + static_cast<ptrdiff_t>( 2 ) * i ) );
        sum += sample * sample;
    }
    if( sum <= 0 ) return 0;
    const double decibels = 20 * std::log10( std::sqrt( sum / samples ) / FULL_SCALE );
    return static_cast<int>( std::lround( std::clamp( 1 + decibels / RANGE, 0.0, 1.0 ) * FULL_LEVEL ) );
}
} // namespace

GLocalCapture::GLocalCapture( GInstance* instance ) : _instance( instance ) {}

bool GLocalCapture::_isPreviewDue( bool enabled, uint64_t last ) const
{
    return enabled && !_instance->test( u"Disable_Preview" ) && GTimeGetTime( ) - last > PREVIEW_PERIOD;
}

void GLocalCapture::onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length )
{
    const GObjectLock scope( *this );
    GPRECONDITION( buffer && length >= 0 );
    GASSERT_TEXT( _myLastFrameOutputTimestamp == UINT64_MAX || timestamp > _myLastFrameOutputTimestamp,
                  "timestamp > _myLastFrameOutputTimestamp" );
    _myLastFrameOutputTimestamp = timestamp;
    // The static that stands there until the first picture comes does not have to stay for its second.
    const bool first = _rgb.empty( ) && _instance->isRobust( u"Robust_Media" );
    if( !_isPreviewDue( enableVideoPreview, first ? 0 : _lastVideoPreview ) || length < GImageSize( format ) ) return;
    if( format != _imageFormat )
    {
        GLOGIF( 'v', u"VIDEOFORMAT: type=#", format.type, u", dimensions=(", format.width, u"x", format.height, u")" );
        _imageFormat = format;
    }
    if( format.type == GIT_RGB24 )
        _rgb.assign( buffer, static_cast<size_t>( GImageSize( format ) ) );
    else
        GImageConvert( format, buffer, GIT_RGB24, _rgb );
    _lastVideoPreview = GTimeGetTime( );
    GImageTools_instanceWrite( _instance, u"Local_Video_Image", { GIT_RGB24, format.width, format.height }, _rgb );
}

void GLocalCapture::onAudioFrame( uint64_t, const GAudioFormat& format, const char* buffer, int length )
{
    const GObjectLock scope( *this );
    GPRECONDITION( buffer && length >= 0 );
    _measure( format, buffer, length );
    if( !_isPreviewDue( enableAudioPreview, _lastAudioPreview ) ) return;
    if( format.bytesPerSample != _audioFormat.bytesPerSample || format.frequency != _audioFormat.frequency )
    {
        GLOGIF( 'v', u"AUDIOFORMAT: frequency=", format.frequency, u"Hz, bits=", format.bytesPerSample * 8 );
        _audioFormat = format;
    }
    if( format.bytesPerSample != 2 )
    {
        GLOG( u"ERROR Attempting encoding of unsupported wave bpp ", format.bytesPerSample * 8, u", aborting." );
        GAbort( );
        return;
    }
    if( length < 2 ) return;
    _lastAudioPreview = GTimeGetTime( );
    _drawLevel( buffer, length / 2 );
}

void GLocalCapture::_measure( const GAudioFormat& format, const char* buffer, int length )
{
    const bool previewed = enableAudioPreview && !_instance->test( u"Disable_Preview" );
    if( !previewed && !_instance->isSet( u"Talking_To_List" ) ) return _writeLevel( 0 );
    if( format.bytesPerSample != 2 || length < 2 ) return;
    _loudest = std::max( _loudest, levelOf( buffer, length / 2 ) );
    const uint64_t now = GTimeGetTime( );
    if( now - _lastLevel < LEVEL_PERIOD ) return;
    _lastLevel = now;
    _writeLevel( _loudest );
}

void GLocalCapture::_writeLevel( int level )
{
    _loudest = 0;
    if( level == _level ) return;
    _level = level;
    _instance->set( u"Audio_Capture_Level", level );
}

// One column a sample: a band whose height is the sample's level, so that silence is half the picture.
void GLocalCapture::_drawLevel( const char* buffer, int samples )
{
    const int width = std::min( samples, LEVEL_WIDTH );
    const GImageFormat format = { GIT_RGB24, width, LEVEL_HEIGHT };
    _audioImage.assign( static_cast<size_t>( GImageSize( format ) ), '\0' );
    for( int x = 0; x < width; ++x )
    {
        const int sample = static_cast<int16_t>( GReadU16( buffer + static_cast<ptrdiff_t>( 2 ) * x ) );
        const int height = ( sample + 32768 ) * LEVEL_HEIGHT / 65535;
        const int top = ( LEVEL_HEIGHT - height ) / 2;
        for( int y = top; y < top + height; ++y )
            _audioImage[static_cast<size_t>( ( y * width + x ) * 3 + 1 )] = '\xFF';
    }
    GImageTools_instanceWrite( _instance, u"Local_Audio_Image", format, _audioImage );
}

void GLocalCapture::update( bool reset )
{
    const GObjectLock scope( *this );
    if( reset )
    {
        forgetAudio( );
        forgetVideo( );
    }
    if( _rgb.empty( ) && _isPreviewDue( enableVideoPreview, _lastVideoPreview ) ) _writeStatic( );
}

bool GLocalCapture::isWaitingForPicture( )
{
    const GObjectLock scope( *this );
    return enableVideoPreview && _rgb.empty( );
}

void GLocalCapture::forgetAudio( )
{
    const GObjectLock scope( *this );
    _lastAudioPreview = 0;
    _audioFormat = { 0, 0, 0 };
    _audioImage.clear( );
    _lastLevel = 0;
    _writeLevel( 0 );
}

void GLocalCapture::forgetVideo( )
{
    const GObjectLock scope( *this );
    _myLastFrameOutputTimestamp = UINT64_MAX;
    _lastVideoPreview = 0;
    _imageFormat = GImageFormat( );
    _rgb.clear( );
    GImageTools_instanceCopy( _instance, u"defaultprofile.png", u"Local_Video_Image" );
}

void GLocalCapture::_writeStatic( )
{
    _lastVideoPreview = GTimeGetTime( );
    _rgb.resize( static_cast<size_t>( GImageSize( STATIC_FORMAT ) ) );
    for( size_t i = 0; i + 2 < _rgb.size( ); i += 3 )
        _rgb[i] = _rgb[i + 1] = _rgb[i + 2] = static_cast<char>( ( GRandom( ) * GRandom( ) ) % 256 );
    GImageTools_instanceWrite( _instance, u"Local_Video_Image", STATIC_FORMAT, _rgb );
    _rgb.clear( );
}
