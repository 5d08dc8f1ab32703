// What the capture tests share: a listener that counts, and devices injected by the environment. Every wait ends on a counted event
// with a deadline.
#pragma once

#include "platform/GAVCapture.h"
#include "support/TestSound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

class CaptureListener : public IGCaptureVideoListener, public IGCaptureAudioListener
{
public:
    void onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length ) override
    {
        const std::scoped_lock lock( _mutex );
        rising = rising && ( !videoFrames || timestamp > _lastVideo );
        _lastVideo = timestamp;
        videoFormat = format;
        videoLength = length;
        picture.assign( buffer, static_cast<size_t>( length ) );
        ++videoFrames;
        _changed.notify_all( );
    }
    void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length ) override
    {
        const std::scoped_lock lock( _mutex );
        rising = rising && ( !audioFrames || timestamp > _lastAudio );
        _lastAudio = timestamp;
        audioFormat = format;
        audioLength = length;
        for( int i = 0; i < length; i++ ) loud = loud || buffer[i];
        ++audioFrames;
        _changed.notify_all( );
    }
    // Until so many have come in all.
    bool wait( int video, int audio )
    {
        std::unique_lock lock( _mutex );
        return _changed.wait_for( lock, std::chrono::seconds( 20 ),
                                  [&] { return videoFrames >= video && audioFrames >= audio; } );
    }
    // Until so many more have come.
    bool waitForMore( int video, int audio )
    {
        std::unique_lock lock( _mutex );
        video += videoFrames;
        audio += audioFrames;
        lock.unlock( );
        return wait( video, audio );
    }

    int videoFrames = 0, audioFrames = 0, videoLength = 0, audioLength = 0;
    bool rising = true, loud = false;
    GImageFormat videoFormat;
    GAudioFormat audioFormat;
    GString picture;

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    uint64_t _lastVideo = 0, _lastAudio = 0;
};

// A recorder with one listener to both media, for a scope.
class Recording
{
public:
    Recording( CaptureListener& listener, const GWString& audio, const GWString& video )
        : _listener( listener ), recorder( GAVCaptureOpen( audio, video, 2, 22000, 7, 48, 48 ) )
    {
        if( !recorder ) return;
        GAVCaptureSubscribeVideo( recorder, &_listener );
        GAVCaptureSubscribeAudio( recorder, &_listener );
    }
    ~Recording( )
    {
        if( !recorder ) return;
        GAVCaptureUnsubscribeVideo( recorder, &_listener );
        GAVCaptureUnsubscribeAudio( recorder, &_listener );
        GAVCaptureClose( recorder );
    }
    Recording( const Recording& ) = delete;
    Recording& operator=( const Recording& ) = delete;

private:
    CaptureListener& _listener;

public:
    GAVCapture recorder;
};

// Opens, listens until so much has come, and closes; the media of which something is expected must work, and no others.
inline void capture( CaptureListener& listener, const GWString& audio, const GWString& video, int videoFrames,
                     int audioFrames )
{
    const Recording recording( listener, audio, video );
    ASSERT_TRUE( recording.recorder );
    EXPECT_EQ( GAVCaptureIsVideoWorking( recording.recorder ), videoFrames > 0 );
    EXPECT_EQ( GAVCaptureIsAudioWorking( recording.recorder ), audioFrames > 0 );
    EXPECT_TRUE( listener.wait( videoFrames, audioFrames ) );
}

inline void inject( const GString& devices )
{
    setenv( "VELMORA_DEVICES", devices.c_str( ), 1 );
}

// Lists the devices whenever the watch tells of a change, for a scope.
class CaptureWatch
{
public:
    CaptureWatch( )
    {
        GAVCaptureWatchDevices( [this] { _list( ); } );
    }
    ~CaptureWatch( ) { GAVCaptureWatchDevices( nullptr ); }
    CaptureWatch( const CaptureWatch& ) = delete;
    CaptureWatch& operator=( const CaptureWatch& ) = delete;
    // Until a device is listed, or no longer is, after the watch told of something.
    bool finds( const GWString& name )
    {
        return TestSound::becomes( [&] { return _has( name ); } );
    }
    bool loses( const GWString& name )
    {
        return TestSound::becomes( [&] { return !_has( name ); } );
    }

private:
    void _list( )
    {
        GStringList audio, video;
        GAVCaptureGetDeviceList( audio, video );
        audio.splice( audio.end( ), video );
        const std::scoped_lock lock( _mutex );
        _names = audio;
    }
    bool _has( const GWString& name )
    {
        const std::scoped_lock lock( _mutex );
        return std::find( _names.begin( ), _names.end( ), name ) != _names.end( );
    }
    std::mutex _mutex;
    GStringList _names;
};
