// Owns the one recorder, the live camera and microphone, and one outgoing stream for each device session that is up. Commands on
// GVideoCaptureService_commandQueue: START, OPEN, RESET, CLOSE, the four preview switches, and LISTDEVICES, which looks again for
// what is plugged in. With Robust_Media, which START reads, the streams share their encodings, devices that come and go are seen,
// and one that was lost is opened again when it is back. With it or with Voice_Treatment the microphone is treated once for all.
#pragma once

#include "client/media/GCaptureRecorder.h"
#include "client/media/GCaptureRetry.h"
#include "client/media/GLocalCapture.h"
#include "client/media/GSharedEncoding.h"
#include "client/media/GTreatedAudio.h"
#include "runtime/GThreadObject.h"

#include <algorithm>

class GVideoCaptureService : public GThreadObject
{
public:
    GVideoCaptureService( GInstance* instance, GMegaPort* port );
    ~GVideoCaptureService( ) override;

    void _bGThreadObject_safe_onStartup( ) override;
    int _bGThreadObject_safe_onLoop( ) override;
    void _bGThreadObject_safe_onShutdown( ) override;

private:
    using Streams = std::map<GWString, GVideoCaptureStream*>;
    // A camera or a microphone as it is told on the blackboard.
    struct Medium
    {
        GCaptureMedium medium;
        GWStringView name;  // Begins the names of its values.
        GWStringView none;  // The choice of no device.
        GWString device{ }; // What START asked for.
        bool isOnline = false;
        GStringList present{ }; // As the devices were listed last.
        GCaptureRetry retry{ };

        bool isPresent( ) const { return std::find( present.begin( ), present.end( ), device ) != present.end( ); }
    };
    void _listDevices( );
    void _publishDevices( GStringList devices, Medium& medium );
    void _enqueueStart( );
    void _onCommand( const GHTTPHeaders& command );
    void _onStart( const GHTTPHeaders& command );
    void _stopRecorder( );
    void _onStartFailed( );
    void _publishMedium( Medium& medium, bool asked, bool working );
    void _publishState( );
    void _restartStreams( );
    void _onOpen( const GHTTPHeaders& command );
    void _onReset( const GHTTPHeaders& command );
    void _onClose( const GHTTPHeaders& command );
    void _treat( );
    void _untreat( );
    void _subscribeAudio( IGCaptureAudioListener* listener );
    void _unsubscribeAudio( IGCaptureAudioListener* listener );
    void _share( );
    void _unshare( );
    void _subscribe( GVideoCaptureStream* stream );
    void _unsubscribe( GVideoCaptureStream* stream );
    void _deleteStream( Streams::iterator stream );
    void _setStatus( GWStringView status );
    void _tellPeers( );
    void _writeNoAudioImage( );
    void _unsubscribeLocal( );
    void _watch( );
    void _lookAtDevices( );
    void _onLost( Medium& medium );
    void _tryAgain( Medium& medium );
    void _waitFor( Medium& medium );
    bool _isRobust( ) const { return _instance->test( u"Robust_Media" ); }

    GInstance* _instance;
    GMegaPort* _port;
    GEvent _commandEvent;
    bool _isWatching = false;
    std::atomic<bool> _devicesChanged = false; // Set by the watch.
    Medium _audio;
    Medium _video;
    GCaptureRecorder _recorder;
    std::unique_ptr<GTreatedAudio> _treated; // Where all who listen to the microphone listen, if it is there.
    GLocalCapture* _localCapture = nullptr;
    std::unique_ptr<GSharedEncoding> _shared; // With Robust_Media, while there is a recorder.
    Streams _streams;
};
