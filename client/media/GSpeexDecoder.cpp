#include "client/media/GSpeexDecoder.h"

#include "base/GBytes.h"

#include <algorithm>
#include <vector>

namespace
{
// An encoder sends a few frames a packet. Five bits can make a frame, so that a packet of any bytes could cost a second of work.
constexpr int MAXIMUM_FRAMES = 256;
constexpr int END_OF_STREAM = -1;
std::vector<float> decodeBuffer_;

// The codec overshoots on loud sound, and a stranger's bits can give any value at all.
int16_t toSample( float value )
{
    if( value >= 32767.0F ) return 32767;
    if( value <= -32768.0F ) return -32768;
    return value == value ? static_cast<int16_t>( value ) : int16_t{ 0 };
}
} // namespace

GSpeexDecoder::GSpeexDecoder( const char* headerPacket, int headerPacketLength )
{
    GASSERT_TEXT( headerPacketLength == 4, "headerPacketLength == sizeof(int)" );
    _waveFormat = GWaveFormatMono16( GReadU32( headerPacket ) );
    speex_bits_init( &_bits );
    _decoderState = speex_decoder_init( &speex_nb_mode );
    GASSERT_TEXT( !speex_decoder_ctl( _decoderState, SPEEX_SET_SAMPLING_RATE, &_waveFormat.nSamplesPerSec ),
                  "!speex_decoder_ctl( _decoderState, 24, &_waveFormat.nSamplesPerSec )" );
    speex_decoder_ctl( _decoderState, SPEEX_GET_FRAME_SIZE, &_frameSize );
}

GSpeexDecoder::~GSpeexDecoder( )
{
    speex_decoder_destroy( _decoderState );
    speex_bits_destroy( &_bits );
}

bool GSpeexDecoder::decode( const char* fromSpeexBytes, int numSpeexBytes, GString& out )
{
    GPRECONDITION( fromSpeexBytes && numSpeexBytes );
    out.clear( );
    if( numSpeexBytes < 4 || GReadU32( fromSpeexBytes ) != static_cast<uint32_t>( numSpeexBytes - 4 ) )
    {
        GLOG( u"WARNING Speex packet of ", numSpeexBytes,
              u" bytes tells another length, ignoring. (numSpeexBytes == sampleBufferSize)" );
        return false;
    }
    speex_bits_read_from( &_bits, const_cast<char*>( fromSpeexBytes + 4 ), numSpeexBytes - 4 );
    const int frameCount = _decodeFrames( );
    if( frameCount < 0 ) return false;
    if( !GWITHIN( 2, frameCount, MAXIMUM_FRAMES ) )
    {
        GLOG( u"WARNING Speex packet holds ", frameCount, u" frames, ignoring. (frameCount > 1)" );
        return false;
    }
    _writeFrames( frameCount, out );
    return true;
}

void GSpeexDecoder::_writeFrames( int frameCount, GString& out ) const
{
    const size_t count = static_cast<size_t>( frameCount * _frameSize );
    out.resize( count * 2 );
    int16_t* samples = reinterpret_cast<int16_t*>( out.data( ) );
    for( size_t i = 0; i < count; ++i ) samples[i] = toSample( decodeBuffer_[i] );
}

void GSpeexDecoder::conceal( int samples, GString& out )
{
    const int frameCount = std::clamp( ( samples + _frameSize - 1 ) / _frameSize, 0, MAXIMUM_FRAMES );
    const size_t needed = static_cast<size_t>( frameCount * _frameSize );
    if( decodeBuffer_.size( ) < needed ) decodeBuffer_.resize( needed );
    for( int i = 0; i < frameCount; ++i )
        speex_decode( _decoderState, nullptr, &decodeBuffer_[static_cast<size_t>( i * _frameSize )] );
    _writeFrames( frameCount, out );
}

// Frames in the shared buffer, one more than the maximum when there are too many; below 0 for bits that the codec refuses.
int GSpeexDecoder::_decodeFrames( )
{
    int frameCount = 0;
    while( speex_bits_remaining( &_bits ) > 0 && frameCount <= MAXIMUM_FRAMES )
    {
        const size_t needed = static_cast<size_t>( ( frameCount + 1 ) * _frameSize );
        if( decodeBuffer_.size( ) < needed ) decodeBuffer_.resize( std::max( needed, decodeBuffer_.size( ) * 2 ) );
        const int result =
            speex_decode( _decoderState, &_bits, &decodeBuffer_[needed - static_cast<size_t>( _frameSize )] );
        if( result == END_OF_STREAM ) break;
        if( result < END_OF_STREAM )
        {
            // What follows is read from the wrong place and could go on for hundreds of frames.
            GLOG( u"WARNING Error #", result, u" reported by speex_decode( )." );
            return result;
        }
        ++frameCount;
    }
    return frameCount;
}
