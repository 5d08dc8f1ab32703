#include "client/media/GTheoraEncoder.h"

#include "client/media/GOggPacket.h"
#include "image/GImage.h"

#include <cstdlib>

namespace
{
constexpr ogg_uint32_t KEY_PERIOD = 64;
// Of the first byte of a picture: not a header, and not built on the picture before.
constexpr unsigned char KEY_BITS = 0xC0;
} // namespace

// A frame carries its own time in the packet, so the codec's rate is a formal 1:1.
void GTheoraEncoder_fillInfo( theora_info& info, int width, int height )
{
    theora_info_init( &info );
    info.width = info.frame_width = static_cast<ogg_uint32_t>( width );
    info.height = info.frame_height = static_cast<ogg_uint32_t>( height );
    info.offset_x = info.offset_y = 0;
    info.fps_numerator = info.fps_denominator = 1;
    info.aspect_numerator = info.aspect_denominator = 0;
    info.colorspace = OC_CS_UNSPECIFIED;
    info.target_bitrate = 45000;
    info.quality = 0;
    info.quick_p = 1;
    info.dropframes_p = 0;
    info.keyframe_auto_p = 1;
    info.keyframe_frequency = KEY_PERIOD;
    info.keyframe_frequency_force = KEY_PERIOD;
    info.keyframe_data_target_bitrate = 67500;
    info.keyframe_auto_threshold = 80;
    info.keyframe_mindistance = 8;
    info.noise_sensitivity = 2;
}

void GTheoraEncoder_generateCodebook( int width, int height, GString& buffer )
{
    GPRECONDITION( width && height );
    GPRECONDITION( !(width % 16) );
    GPRECONDITION( !(height % 16) );
    GPRECONDITION( !buffer.size( ) );
    theora_info encoderInfo;
    theora_comment encoderComment;
    theora_state theoraState;
    ogg_packet oggPacket;
    GTheoraEncoder_fillInfo( encoderInfo, width, height );
    GASSERT( !theora_encode_init( &theoraState, &encoderInfo ) );
    GASSERT( !theora_encode_header( &theoraState, &oggPacket ) );
    GSerialize( oggPacket, buffer );
    theora_comment_init( &encoderComment );
    GASSERT( !theora_encode_comment( &encoderComment, &oggPacket ) );
    GSerialize( oggPacket, buffer );
    std::free( oggPacket.packet ); // The comment packet alone belongs to the caller.
    GASSERT( !theora_encode_tables( &theoraState, &oggPacket ) );
    GSerialize( oggPacket, buffer );
    theora_comment_clear( &encoderComment );
    theora_clear( &theoraState );
    theora_info_clear( &encoderInfo );
}

GTheoraEncoder::GTheoraEncoder( const GImageFormat& srcImageFormat, const GRect& cropRect, int outputWidth,
                                int outputHeight, int fps )
    : _srcImageFormat( srcImageFormat ), _cropRect( cropRect ), _outputWidth( outputWidth ),
      _outputHeight( outputHeight )
{
    GPRECONDITION( srcImageFormat.width > 0 );
    GPRECONDITION( srcImageFormat.height > 0 );
    GPRECONDITION( outputWidth > 0 );
    GPRECONDITION( outputHeight > 0 );
    GPRECONDITION( GRectWithin( cropRect, srcImageFormat.width, srcImageFormat.height ) );
    GPRECONDITION( fps > 0 );
    GASSERT( !(_outputWidth% 16) && !(_outputHeight% 16) );
    GTheoraEncoder_fillInfo( _encoderInfo, outputWidth, outputHeight );
    GASSERT_TEXT( !theora_encode_init( &_theoraState, &_encoderInfo ),
                  "!theora_encode_init( &_theoraState, &_encoderInfo )" );
    GString codebook;
    GTheoraEncoder_generateCodebook( outputWidth, outputHeight, codebook );
    _debug_decoder.reset( GSAFENEW( GTheoraDecoder, ( codebook.data( ), static_cast<int>( codebook.size( ) ) ) ) );
}

GTheoraEncoder::~GTheoraEncoder( )
{
    theora_clear( &_theoraState );
    theora_info_clear( &_encoderInfo );
}

void GTheoraEncoder::encode( const char* sampleBuffer, int length, GString& packetBuffer )
{
    GPRECONDITION( sampleBuffer && length >= 0 );
    GLOGIF( 'E', u"GTheoraEncoder::encode( sampleBuffer=..., length=", length, u", packetBuffer=... )" );
    packetBuffer.clear( );
    _isKeyPicture = false;
    if( !_fillPlanes( sampleBuffer, length ) ) return;
    GASSERT_TEXT( _encoderInfo.width == static_cast<ogg_uint32_t>( _outputWidth ) &&
                      _encoderInfo.height == static_cast<ogg_uint32_t>( _outputHeight ),
                  "_encoderInfo.width == _outputWidth && _encoderInfo.height == _outputHeight" );
    unsigned char* luma = reinterpret_cast<unsigned char*>( _planes.data( ) );
    yuv_buffer yuv;
    yuv.y_width = yuv.y_stride = _outputWidth;
    yuv.y_height = _outputHeight;
    yuv.uv_width = yuv.uv_stride = _outputWidth / 2;
    yuv.uv_height = _outputHeight / 2;
    yuv.y = luma;
    yuv.u = luma + _outputWidth * _outputHeight;
    yuv.v = yuv.u + yuv.uv_width * yuv.uv_height;
    ogg_packet oggPacket;
    if( _isAfresh ) _setKeyPeriod( 1 );
    GASSERT( !theora_encode_YUVin( &_theoraState, &yuv ) );
    if( _isAfresh ) _setKeyPeriod( KEY_PERIOD );
    _isAfresh = false;
    GASSERT( theora_encode_packetout( &_theoraState, 0, &oggPacket ) == 1 );
    _isKeyPicture = oggPacket.bytes > 0 && !( *oggPacket.packet & KEY_BITS );
    GSerialize( oggPacket, packetBuffer );
    // A frame of no bytes repeats the one before it, which the other decoder may not have seen.
    if( oggPacket.bytes && GLogTest( 'E' ) ) _verify( packetBuffer );
}

void GTheoraEncoder::_setKeyPeriod( ogg_uint32_t pictures )
{
    theora_control( &_theoraState, TH_ENCCTL_SET_KEYFRAME_FREQUENCY_FORCE, &pictures, sizeof( pictures ) );
}

// Brings what the crop keeps of the source to planes of the output size.
bool GTheoraEncoder::_fillPlanes( const char* sampleBuffer, int length )
{
    if( _srcImageFormat.type != GIT_RGB24 && _srcImageFormat.type != GIT_YUY2 )
    {
        GLOG( u"WARNING unsupported format", _srcImageFormat.type, u", ignoring." );
        return false;
    }
    if( length < GImageSize( _srcImageFormat ) )
    {
        GLOG( u"WARNING Frame of ", length, u" bytes is too short, ignoring." );
        return false;
    }
    GImageCropToIYUY( _srcImageFormat, sampleBuffer, _cropRect, { GIT_IYUY, _outputWidth, _outputHeight }, _planes );
    return true;
}

void GTheoraEncoder::_verify( const GString& packetBuffer )
{
    GImageFormat format;
    GString pixels;
    GVERIFY( _debug_decoder->decode( packetBuffer.data( ), static_cast<int>( packetBuffer.size( ) ), format, pixels ) );
}
