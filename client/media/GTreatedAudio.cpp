#include "client/media/GTreatedAudio.h"

#include "base/GPortable.h"

#include <cstring>

GTreatedAudio::GTreatedAudio( GInstance* instance ) : _mutex( GMutexOpen( ) ), _treatment( instance ) {}

GTreatedAudio::~GTreatedAudio( )
{
    GASSERT( _listeners.empty( ) );
    GMutexClose( _mutex );
}

void GTreatedAudio::add( IGCaptureAudioListener* listener )
{
    const GMutexScope scope( _mutex );
    _listeners.push_back( listener );
}

void GTreatedAudio::remove( IGCaptureAudioListener* listener )
{
    const GMutexScope scope( _mutex );
    std::erase( _listeners, listener );
}

void GTreatedAudio::onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length )
{
    const GMutexScope scope( _mutex );
    GPRECONDITION( buffer && length >= 0 );
    const bool isPlain = format.bytesPerSample == sizeof( int16_t ) && format.channels == 1 && format.frequency > 0;
    if( isPlain )
    {
        _samples.resize( static_cast<size_t>( length ) / sizeof( int16_t ) );
        length = static_cast<int>( _samples.size( ) * sizeof( int16_t ) );
        if( length ) std::memcpy( _samples.data( ), buffer, static_cast<size_t>( length ) );
        _treatment.process( timestamp, format.frequency, _samples.data( ), static_cast<int>( _samples.size( ) ) );
        if( length ) buffer = reinterpret_cast<const char*>( _samples.data( ) );
    }
    for( IGCaptureAudioListener* listener : _listeners ) listener->onAudioFrame( timestamp, format, buffer, length );
}
