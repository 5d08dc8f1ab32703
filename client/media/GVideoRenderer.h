// Turns the decoded media of one talk spurt into sound and pictures: collects a prebuffer of audio, starts a looping sound ring and
// keeps it fed, and writes pictures to the blackboard once the audio clock runs. Two feeder threads of its own; one lock guards all
// fields and is dropped around sleeps and around writes to the blackboard. A missing sound device costs the sound only. Nothing is
// allocated for a packet or a picture once the buffers have grown.
#pragma once

#include "client/media/GPictureQueue.h"
#include "client/media/GWaveFormat.h"
#include "platform/GSoundRing.h"
#include "runtime/GInstance.h"

class GVideoRenderer : public GThreadSafeObject
{
public:
    // `prebuffer` in microseconds.
    GVideoRenderer( GInstance* instance, const GWString& outImageName, int64_t prebuffer );
    ~GVideoRenderer( ) override; // Joins the feeders: up to 0.2 s.

    // A renderer never changes format: the stream makes a new one instead.
    void queueAudio( uint64_t timestamp, const GWaveFormat& format, const char* samples, int size );
    // Without a known audio format the picture is written at once; else it waits for the audio clock.
    void queueVideo( uint64_t timestamp, const GImageFormat& format, const GString& pixels );
    // Lets a spurt below the prebuffer play out.
    void finish( );
    // True when nothing is queued any more; what stands in the sound ring is not counted.
    bool done( ) const;
    int64_t getAudioBufferedLength( ) const; // Microseconds, twice the queue's time.
    int64_t getVideoBufferedLength( ) const; // Microseconds.
    const GWString& getOutImageName( ) const { return _outImageName; }

private:
    friend int GVideoRenderer_audioFeederProc( void* data );
    friend int GVideoRenderer_videoFeederProc( void* data );
    void _playNow( );
    bool _onAudioUpdate( );
    bool _onVideoUpdate( );
    void _skipDangerZone( int play, int write );
    char* _lockRing( int position, int length, int& frontBufferSize, char*& backBufferPtr, int& backBufferSize );
    int _fillPart( char* part, int size );
    void _feedRing( int play );
    void _heed( int ahead, const GString& samples, int length );
    void _updateClock( int64_t samplesBefore );
    int64_t _bytesToTime( int64_t bytes ) const;
    int _bytesPerSample( ) const { return _audioFormat.wBitsPerSample / 8; }

    GInstance* _instance;
    GWString _outImageName;
    int64_t _prebuffer;
    GWaveFormat _audioFormat;
    GString _audioBuffer;
    GPictureQueue _videoFrames; // Their times are those of the sender.
    GString _queued;            // The room of a copy on its way into the queue,
    GString _shown;             // and of the picture that the feeder writes without the lock.
    bool _started = false;
    GSoundRing _secondaryBuffer = nullptr;
    GThreadID _audioFeederThread = 0;
    GThreadID _videoFeederThread = 0;
    bool _stop = false;
    int _ringSize = 0;
    int _nextWritePosition = 0;
    int64_t _numQueued = 0;
    int64_t _numBytesWritten = 0;
    int64_t _samplesCopied = 0;
    uint64_t _firstTimestamp = UINT64_MAX;
    int64_t _clockOffset = 0;
    uint64_t _audioStartTime = 0;
    uint64_t _audioEndTime = 0;
    int _lastPlayPosition = 0;
    int _lastWritePosition = 0;
    int64_t _bytesUnplayed = 0;
    uint64_t _nextFrameTime = 0;
    GString _feed;
};
