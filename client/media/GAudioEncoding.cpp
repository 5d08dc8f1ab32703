#include "client/media/GAudioEncoding.h"

#include <algorithm>

namespace
{
constexpr int MAXIMUM_ENCODED_CHUNK = 1400;
constexpr int ENCODED_SHARE = 4; // Speex turns four bytes of samples into less than one.

int raise( int length, int step )
{
    return ( length + step - 1 ) / step * step;
}
} // namespace

void GAudioEncoding::reset( )
{
    _speexEncoder.reset( );
    _format = { 0, 0, 0 };
    _remaining = 0;
}

void GAudioEncoding::_make( const GAudioFormat& format, bool audioEnabled )
{
    reset( );
    _format = format;
    GLOGIF( 'v', u"onAudioFormatSet( audioEnabled=", audioEnabled, u", frequency=", format.frequency, u" )" );
    GWaveFormat wave = GWaveFormatMono16( static_cast<uint32_t>( format.frequency ) );
    wave.wBitsPerSample = static_cast<uint16_t>( format.bytesPerSample * 8 );
    _speexEncoder.reset( GSAFENEW( GSpeexEncoder, ( wave ) ) );
}

void GAudioEncoding::begin( const GAudioFormat& format, const char* buffer, int length, bool audioEnabled )
{
    if( !isMadeFor( format ) ) _make( format, audioEnabled );
    int numChunks = 1;
    while( length / numChunks / ENCODED_SHARE > MAXIMUM_ENCODED_CHUNK ) numChunks *= 2;
    GVERIFY( !(length % numChunks) );
    _chunkSize = raise( length / numChunks, _speexEncoder->getFrameSize( ) );
    _buffer = buffer;
    _remaining = length;
}

const GString* GAudioEncoding::next( )
{
    if( _remaining <= 0 ) return nullptr;
    _thisChunkSize = std::min( _chunkSize, _remaining );
    _encode( _buffer );
    _buffer += _thisChunkSize;
    _remaining -= _thisChunkSize;
    return &_frame;
}

void GAudioEncoding::_encode( const char* chunk )
{
    const int frameSize = _speexEncoder->getFrameSize( );
    _frame.clear( );
    if( GVERIFY_TEXT( !( _thisChunkSize % frameSize ), "!(thisChunkSize % frameSize)" ) )
        return _speexEncoder->encode( chunk, _thisChunkSize, _frame );
    // A device that delivers broken frames is heard all the same, with silence up to the next frame.
    _padded.assign( chunk, static_cast<size_t>( _thisChunkSize ) );
    _padded.resize( static_cast<size_t>( raise( _thisChunkSize, frameSize ) ), '\0' );
    _speexEncoder->encode( _padded.data( ), static_cast<int>( _padded.size( ) ), _frame );
}
