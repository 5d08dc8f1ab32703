#include "client/media/GLocalCapture.h"

#include "base/GBytes.h"
#include "base/GRandom.h"
#include "client/drawing/GImageTools.h"
#include "image/GImage.h"
#include "platform/GTime.h"

#include <algorithm>

namespace
{
constexpr uint64_t PREVIEW_PERIOD = 1000000;
constexpr int LEVEL_WIDTH = 300;
constexpr int LEVEL_HEIGHT = 100;
constexpr GImageFormat STATIC_FORMAT = { GIT_RGB24, 160, 120 };
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
    if( !_isPreviewDue( enableVideoPreview, _lastVideoPreview ) || length < GImageSize( format ) ) return;
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
    if( reset ) _reset( );
    if( _rgb.empty( ) && _isPreviewDue( enableVideoPreview, _lastVideoPreview ) ) _writeStatic( );
}

void GLocalCapture::_reset( )
{
    _myLastFrameOutputTimestamp = UINT64_MAX;
    _lastVideoPreview = _lastAudioPreview = 0;
    _imageFormat = GImageFormat( );
    _audioFormat = { 0, 0, 0 };
    _rgb.clear( );
    _audioImage.clear( );
    GString file;
    GImageFormat format;
    GString pixels;
    if( GFileLoad( u"defaultprofile.png", file ) &&
        GImageLoad( file.data( ), static_cast<int>( file.size( ) ), format, pixels ) )
        GImageTools_instanceWrite( _instance, u"Local_Video_Image", format, pixels );
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
