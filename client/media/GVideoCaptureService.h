// Owns the one recorder, the live camera and microphone, and one outgoing stream for each device session that is up. Commands on
// GVideoCaptureService_commandQueue: START, OPEN, RESET, CLOSE, the four preview switches, and LISTDEVICES, which looks again for
// what is plugged in. Robust_Media is read by START.
#pragma once

#include "client/media/GLocalCapture.h"
#include "client/media/GSharedEncoding.h"
#include "runtime/GThreadObject.h"

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
    void _listDevices( );
    void _publishDevices( GStringList devices, GWStringView choice, GWStringView none, GWStringView list );
    void _enqueueStart( );
    void _onCommand( const GHTTPHeaders& command );
    void _onStart( const GHTTPHeaders& command );
    void _stopRecorder( );
    void _onStartFailed( );
    void _publishMedium( GWStringView medium, GWStringView name, bool asked, bool working );
    void _restartStreams( );
    void _onOpen( const GHTTPHeaders& command );
    void _onReset( const GHTTPHeaders& command );
    void _onClose( const GHTTPHeaders& command );
    void _share( );
    void _unshare( );
    void _subscribe( GVideoCaptureStream* stream );
    void _unsubscribe( GVideoCaptureStream* stream );
    void _deleteStream( Streams::iterator stream );
    void _setStatus( GWStringView status );
    void _writeNoAudioImage( );

    GInstance* _instance;
    GMegaPort* _port;
    GEvent _commandEvent;
    GAVCapture _recorder = nullptr;
    GLocalCapture* _localCapture = nullptr;
    std::unique_ptr<GSharedEncoding> _shared; // With Robust_Media, while there is a recorder.
    Streams _streams;
};
