// Receives all audio and video packets from the shared port, finds the stream of the sending host and hands them over. Commands on
// GVideoPlaybackService_commandQueue: OPEN (Buddy-Device-GUID, Recv-From-Host) and CLOSE (Buddy-Device-GUID).
#pragma once

#include "client/media/GVideoPlaybackStream.h"
#include "runtime/GThreadObject.h"

class GVideoPlaybackService : public GThreadObject
{
public:
    GVideoPlaybackService( GInstance* instance, GMegaPort* port );
    ~GVideoPlaybackService( ) override;

    int _bGThreadObject_safe_onLoop( ) override;
    void _bGThreadObject_safe_onShutdown( ) override;
    // One round of the loop: what has come, then a wait of at most that many microseconds for more.
    void pass( int64_t timeout );

private:
    int64_t _updateStreams( );
    bool _drainBuckets( );
    void _onBucket( const GMegaPortBucket& bucket );
    void _onSenderReport( const GMegaPortBucket& bucket, const GVideoPlaybackStream* stream );
    void _drainCommands( );
    void _onOpen( const GHTTPHeaders& command );
    void _onClose( const GHTTPHeaders& command );
    void _deleteStream( const GWString& name ); // May be the key of the entry that goes.

    GInstance* _instance;
    GMegaPort* _port;
    std::map<GWString, GVideoPlaybackStream*> _nameStreamMap;
    std::map<GWString, GVideoPlaybackStream*> _remoteHostStreamMap;
};
