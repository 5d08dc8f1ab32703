// Recorders under the test's control: it tells what was opened, lets devices come and go, and hands the test's frames to the subscribers.
#pragma once

#include "platform/GAVCapture.h"

#include <functional>
#include <memory>
#include <set>

struct GAVCaptureRecord
{
    GWString audioDevice;
    GWString videoDevice;
    bool audioWorks = false;
    bool videoWorks = false;
    std::vector<IGCaptureAudioListener*> audioListeners;
    std::vector<IGCaptureVideoListener*> videoListeners;
};

struct FakeCapture
{
    bool canOpen = true;
    std::set<GWString> broken; // Devices that do not work, whatever their medium.
    GStringList audioDevices;
    GStringList videoDevices;

    // What happened.
    int latency = 0; // As it was set last.
    std::function<void( )> devicesChanged;
    int opened = 0;
    int closed = 0;
    GWString audioDevice; // As it was last asked for, here and below.
    GWString videoDevice;
    int bytesPerSample = 0;
    int frequency = 0;
    int fps = 0;
    int width = 0;
    int height = 0;
    std::vector<GString> calls; // "open", "close", and a plus or minus with the medium for who comes and goes.
    std::function<void( const GString& call )> onCall;
    std::vector<std::unique_ptr<GAVCaptureRecord>> records; // Those that are open.

    static FakeCapture& get( );
    void reset( );
    void note( const GString& call );
    // A device goes while it is captured, and cannot be opened until it is plugged in again.
    void pull( const GWString& device );
    void plug( const GWString& device ) { broken.erase( device ); }
    // In the order in which they subscribed.
    std::vector<IGCaptureAudioListener*> audioListeners( ) const;
    std::vector<IGCaptureVideoListener*> videoListeners( ) const;
};
