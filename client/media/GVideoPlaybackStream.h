// Decodes one device's media, rebuilding its decoders whenever the sender's format word changes, and feeds a renderer. Run by the
// playback service's thread; recv and update take the object's lock. Bad packets are dropped with a warning and never end a stream.
// With the remedy `Robust_Media` each talk has a playout that follows the network, and pictures wait for the sound of their time, at most
// half a second; nothing is allocated for a packet then. What a peer's packets may cost has an end, so that no stream starves the others.
#pragma once

#include "client/media/GMediaBudget.h"
#include "client/media/GPictureQueue.h"
#include "client/media/GSpeexDecoder.h"
#include "client/media/GTheoraDecoder.h"
#include "client/media/GVideoRenderer.h"
#include "client/media/GVoicePlayout.h"
#include "client/transport/GMegaPort.h"
#include "client/transport/GRTP.h"

#include <memory>

class GVideoPlaybackStream : public GThreadSafeObject
{
public:
    // `headers`: an OPEN command with "Buddy-Device-GUID" (buddy@device; the device begins at the last "@").
    GVideoPlaybackStream( GInstance* instance, GMegaPort* port, const GHTTPHeaders& headers );
    ~GVideoPlaybackStream( ) override;

    void recv( const GMegaPortBucket& bucket );
    void update( );
    // When update wants to run again; 0 for at once, all ones when only a packet can bring more.
    uint64_t getNextUpdate( ) const { return _nextUpdate; }
    const GWString& getName( ) const { return _name; }
    const GWString& getBuddyGUID( ) const { return _buddyGUID; }

private:
    // A talk with the remedy; the playout borrows the decoder.
    struct Talk
    {
        std::unique_ptr<GSpeexDecoder> decoder;
        std::unique_ptr<GVoicePlayout> playout;
    };
    bool _isAffordable( );
    void _recvTalk( const GRTPHeader& header, const char* payload, int length );
    void _recvAudio( const GRTPHeader& header, uint64_t timestamp, const char* payload, int length );
    void _recvVideo( const GRTPHeader& header, uint64_t timestamp, const char* payload, int length );
    void _resetAudio( uint32_t rate );
    void _resetVideo( uint32_t width, uint32_t height );
    void _openAudio( uint32_t rate );
    void _retireTalk( );
    bool _isTalk( ) const { return _talk.playout || ( !_audioDecoder && _isRobust( ) ); }
    void _show( uint32_t stamp, const GImageFormat& format );
    void _showDue( uint64_t time );
    void _updateTalk( );
    void _wakeAfter( int64_t wait );
    void _publishTalk( uint64_t now );
    void _retireRenderer( );
    void _makeRenderer( );
    void _startListeningTo( );
    void _stopListeningTo( );
    void _writeBufferLengths( );
    void _dropSunset( );
    int _readGain( );
    bool _isRobust( ) const { return _instance->test( u"Robust_Media" ); }
    GWString _key( GWStringView suffix ) const { return GConcat( _buddyGUID, suffix ); }

    GInstance* _instance;
    GMegaPort* _port;
    GWString _name;
    GWString _buddyGUID;
    GWString _deviceGUID;
    GWString _imageName;
    GTheoraDecoder* _videoDecoder = nullptr;
    GSpeexDecoder* _audioDecoder = nullptr;
    GString _decodedAudio;
    GString _decodedVideo;
    GVideoRenderer* _videoRenderer = nullptr;
    std::list<GVideoRenderer*> _sunsetList;
    uint16_t _lastAudioSequence = 0;
    uint16_t _lastVideoSequence = 0;
    uint32_t _ssrc = 0;
    uint32_t _audioRate = 0;
    uint32_t _videoWidth = 0;
    uint32_t _videoHeight = 0;
    uint64_t _lastAudioTime = 0;
    bool _hasFrame = false;
    GMediaBudget _budget;

    GJitterEstimate _jitter;
    Talk _talk;
    std::list<Talk> _sunsetTalks;
    GPictureQueue _pictures;
    uint32_t _lastAudioStamp = 0;
    uint64_t _nextUpdate = 0;
    uint64_t _publishTime = 0;
    GWString _videoLengthName;
    GWString _audioLengthName;
    GWString _prebufferName;
    GWString _gainName;
    int _gain = 100;
    uint64_t _gainGeneration = 0; // Of the blackboard, when the gain was looked at,
    uint64_t _gainTime = 0;       // and when it had changed by then.
};
