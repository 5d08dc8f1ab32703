#include "client/media/GTheoraDecoder.h"

#include "client/media/GOggPacket.h"
#include "image/GImage.h"

namespace
{
constexpr int MINIMUM_EDGE = 16;
constexpr int MAXIMUM_EDGE = 1024;
constexpr int HEADER_PACKETS = 3;

bool isEdge( uint32_t edge )
{
    return GWITHIN( static_cast<uint32_t>( MINIMUM_EDGE ), edge, static_cast<uint32_t>( MAXIMUM_EDGE ) );
}

bool isPlayable( const theora_info& info )
{
    return isEdge( info.width ) && isEdge( info.height ) && info.pixelformat == OC_PF_420;
}
} // namespace

GTheoraDecoder::GTheoraDecoder( const char* headerPacketBuffer, int headerPacketLength )
{
    GPRECONDITION( headerPacketBuffer && headerPacketLength >= 0 );
    theora_info_init( &_info );
    theora_comment_init( &_comment );
    if( !_readHeaders( headerPacketBuffer, headerPacketLength ) || !isPlayable( _info ) )
    {
        GLOG( u"WARNING Invalid Theora codebook, ignoring." );
        return;
    }
    _stateOpen = _valid = theora_decode_init( &_state, &_info ) == 0;
}

GTheoraDecoder::~GTheoraDecoder( )
{
    if( _stateOpen ) theora_clear( &_state );
    theora_comment_clear( &_comment );
    theora_info_clear( &_info );
}

bool GTheoraDecoder::_readHeaders( const char* buffer, int length )
{
    for( int i = 0; i < HEADER_PACKETS; ++i )
    {
        ogg_packet oggPacket;
        const int taken = GDeserialize( buffer, length, oggPacket );
        if( !taken || theora_decode_header( &_info, &_comment, &oggPacket ) != 0 ) return false;
        buffer += taken;
        length -= taken;
    }
    return true;
}

bool GTheoraDecoder::decode( const char* packetBuffer, int packetLength, GImageFormat& format, GString& pixels )
{
    GPRECONDITION( packetBuffer && packetLength >= 0 );
    ogg_packet framePacket;
    if( !_valid || GDeserialize( packetBuffer, packetLength, framePacket ) == 0 )
    {
        GLOG( u"WARNING Malformed Theora frame, ignoring. (GDeserialize( packetBuffer, packetLength, framePacket ))" );
        return false;
    }
    // An empty packet repeats the last picture; before the first one there is nothing to repeat.
    if( framePacket.bytes == 0 && !_hasReference ) return false;
    const int result = framePacket.bytes == 0 ? 0 : theora_decode_packetin( &_state, &framePacket );
    if( result != 0 )
    {
        GLOG( u"WARNING Undecodable Theora frame (", result, u"), ignoring." );
        return false;
    }
    _hasReference = true;
    yuv_buffer yuv;
    if( theora_decode_YUVout( &_state, &yuv ) != 0 || !yuv.y || !yuv.u || !yuv.v ) return false;
    // Decoded planes are padded: rows are a stride apart.
    format.type = GIT_RGB24;
    GImageConvertFromPlanes( { yuv.y, yuv.u, yuv.v, yuv.y_stride, yuv.uv_stride, yuv.y_width, yuv.y_height }, format,
                             pixels );
    return true;
}
