#include "client/media/GSpeexDecoder.h"

#include "base/GBytes.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace
{
// An encoder sends a few frames a packet; a damaged bit stream must not turn one packet into minutes of sound.
constexpr int MAXIMUM_FRAMES = 256;
std::vector<float> decodeBuffer_;
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
    const int64_t sampleBufferSize = numSpeexBytes < 4 ? -1 : static_cast<int64_t>( GReadU32( fromSpeexBytes ) );
    if( sampleBufferSize != numSpeexBytes - 4 )
    {
        GLOG( u"WARNING Speex packet of ", numSpeexBytes,
              u" bytes tells another length, ignoring. (numSpeexBytes == sampleBufferSize)" );
        return false;
    }
    speex_bits_read_from( &_bits, const_cast<char*>( fromSpeexBytes + 4 ), numSpeexBytes - 4 );
    const int frameCount = _decodeFrames( );
    if( frameCount <= 1 )
    {
        GLOG( u"WARNING Speex packet holds ", frameCount, u" frames, ignoring. (frameCount > 1)" );
        return false;
    }
    _writeFrames( frameCount, out );
    return true;
}

void GSpeexDecoder::_writeFrames( int frameCount, GString& out ) const
{
    out.resize( static_cast<size_t>( frameCount * _frameSize ) * 2 );
    for( int i = 0; i < frameCount * _frameSize; ++i )
    {
        const float sample = decodeBuffer_[static_cast<size_t>( i )];
        const float clamped = std::isfinite( sample ) ? std::clamp( sample, -32768.0F, 32767.0F ) : 0.0F;
        GWriteU16( out.data( ) + static_cast<ptrdiff_t>( 2 ) * i,
                   static_cast<uint16_t>( static_cast<int16_t>( clamped ) ) );
    }
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

int GSpeexDecoder::_decodeFrames( )
{
    int frameCount = 0;
    while( speex_bits_remaining( &_bits ) > 0 && frameCount < MAXIMUM_FRAMES )
    {
        const size_t needed = static_cast<size_t>( ( frameCount + 1 ) * _frameSize );
        if( decodeBuffer_.size( ) < needed ) decodeBuffer_.resize( std::max( needed, decodeBuffer_.size( ) * 2 ) );
        const int result =
            speex_decode( _decoderState, &_bits, &decodeBuffer_[needed - static_cast<size_t>( _frameSize )] );
        if( result == -1 ) break;
        if( result < -1 ) GLOG( u"WARNING Error #", result, u" reported by speex_decode( )." );
        ++frameCount;
    }
    return frameCount;
}
