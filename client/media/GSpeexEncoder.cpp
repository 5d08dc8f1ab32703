#include "client/media/GSpeexEncoder.h"

#include "base/GBytes.h"
#include "base/GUtil.h"

void GSpeexEncoder_generateCodebook( GString& buffer, int sampleRate )
{
    GASSERT( sampleRate );
    buffer.clear( );
    GSerialize( static_cast<uint32_t>( sampleRate ), buffer );
}

GSpeexEncoder::GSpeexEncoder( const GWaveFormat& waveFormat ) : _waveFormat( waveFormat )
{
    speex_bits_init( &_bits );
    _encoderState = speex_encoder_init( &speex_nb_mode );
    int bitRate = 0;
    int sampling = 0;
    int vad = 0;
    int dtx = 0;
    int abr = 0;
    speex_encoder_ctl( _encoderState, SPEEX_GET_FRAME_SIZE, &_frameSize );
    speex_encoder_ctl( _encoderState, SPEEX_GET_BITRATE, &bitRate );
    speex_encoder_ctl( _encoderState, SPEEX_GET_SAMPLING_RATE, &sampling );
    speex_encoder_ctl( _encoderState, SPEEX_GET_VAD, &vad );
    speex_encoder_ctl( _encoderState, SPEEX_GET_DTX, &dtx );
    speex_encoder_ctl( _encoderState, SPEEX_GET_ABR, &abr );
    GLOGIF( 'a', u"Speex encoder: frameSize=", _frameSize, u", bitrate=", bitRate, u", sampling=", sampling, u", VAD=",
            vad, u", DTX=", dtx, u", ABR=", abr );
    int rate = static_cast<int>( _waveFormat.nSamplesPerSec );
    speex_encoder_ctl( _encoderState, SPEEX_SET_SAMPLING_RATE, &rate );
    GSpeexEncoder_generateCodebook( _codebook, rate );
}

GSpeexEncoder::~GSpeexEncoder( )
{
    speex_encoder_destroy( _encoderState );
    speex_bits_destroy( &_bits );
}

void GSpeexEncoder::encode( const char* sampleBuffer, int length, GString& packetBuffer )
{
    if( _waveFormat.wBitsPerSample != 16 )
    {
        GLOG( u"ERROR Attempting to encode unsupported bpp", _waveFormat.wBitsPerSample, u", aborting." );
        GAbort( );
        return;
    }
    _samples.resize( static_cast<size_t>( length / 2 ) );
    for( size_t i = 0; i < _samples.size( ); ++i )
        _samples[i] = static_cast<int16_t>( GReadU16( sampleBuffer + 2 * i ) );
    GASSERT_TEXT( !( static_cast<int>( _samples.size( ) ) % _frameSize ),
                  "!( (int)fromSamplesFloat.size( ) % _frameSize )" );
    speex_bits_reset( &_bits );
    for( size_t i = 0; i < _samples.size( ); i += static_cast<size_t>( _frameSize ) )
        speex_encode( _encoderState, &_samples[i], &_bits );
    speex_bits_insert_terminator( &_bits );
    const int numBytes = speex_bits_nbytes( &_bits );
    GSerialize( static_cast<uint32_t>( numBytes ), packetBuffer );
    const size_t oldSize = packetBuffer.size( );
    packetBuffer.resize( oldSize + static_cast<size_t>( numBytes ) );
    GASSERT( numBytes == speex_bits_write( &_bits, &packetBuffer[oldSize], numBytes ) );
}
