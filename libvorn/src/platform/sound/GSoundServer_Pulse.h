// The one connection to the sound server, shared by the lines, the rings and the wave files. It is made when it is first needed and
// again after the server went away; a server that is not there is asked at most once a second. All calls on the library are made
// under the loop's lock, which its callbacks hold as well.
#pragma once

#include "base/GTypes.h"

#include <pulse/pulseaudio.h>

#include <utility>

class GSoundServer
{
public:
    static GSoundServer& get( );

    // Holds the loop's lock for a scope.
    class Lock
    {
    public:
        Lock( ) : _loop( get( )._loop ) { pa_threaded_mainloop_lock( _loop ); }
        ~Lock( ) { pa_threaded_mainloop_unlock( _loop ); }
        Lock( const Lock& ) = delete;
        Lock& operator=( const Lock& ) = delete;

    private:
        pa_threaded_mainloop* _loop;
    };

    // Under the lock: true when a server answers. Waits two seconds at most.
    bool connect( );
    // Under the lock: true when it answers a question put now, within a second.
    bool isAnswering( );
    // Under the lock: true unless the server says that it has no source of that name.
    bool hasSource( const char* name );
    // Under the lock: `changed` is called with `argument`, on the loop's thread and under the lock, when sources come or go and when the
    // connection is lost; null ends that. One for the process.
    void watchSources( void ( *changed )( void* ), void* argument );
    // Under the lock: waits for an operation and lets go of it; false when it did not end well or a second has passed.
    bool finish( pa_operation* operation );
    // Under the lock: waits until `ready` says so, the context fails or the time is up.
    bool waitUntil( bool ( *ready )( void* ), void* argument, pa_usec_t duration );
    pa_context* context( ) const { return _context; }
    void tellSources( )
    {
        if( _sourcesChanged ) _sourcesChanged( _sourcesArgument );
    }
    // A server that was never reached has not gone.
    void tellEnd( )
    {
        if( std::exchange( _wasReady, false ) ) tellSources( );
    }
    void wake( ) { pa_threaded_mainloop_signal( _loop, 0 ); }

    // The wave line: volume 0 to 1 and mute of this program's own streams. Under the lock.
    double waveVolume = 1.0;
    bool waveMuted = false;
    static pa_volume_t getVolume( double volume );
    pa_cvolume getWaveVolume( int channels ) const;
    // Every stream of this program is entered here for its life, so that the wave line reaches it.
    void addStream( pa_stream* stream ) { _streams.push_back( stream ); }
    void removeStream( pa_stream* stream ) { _streams.remove( stream ); }
    // Lets go of a stream of any state, which is in the list no more and calls nobody back.
    static void release( pa_stream* stream );
    bool hasStreams( ) const { return !_streams.empty( ); }
    // Sets volume and mute of the streams that play now.
    bool applyWaveLine( );

private:
    GSoundServer( );
    bool _isReady( ) const;
    void _subscribe( );

    pa_threaded_mainloop* _loop = nullptr;
    pa_context* _context = nullptr;
    pa_usec_t _lastFailure = 0;
    bool _wasReady = false;
    std::list<pa_stream*> _streams;
    void ( *_sourcesChanged )( void* ) = nullptr;
    void* _sourcesArgument = nullptr;
};
