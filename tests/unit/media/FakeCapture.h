// A recorder under the test's control: it tells what was opened, and hands the test's frames to the subscribers.
#pragma once

#include "platform/GAVCapture.h"

#include <set>

struct FakeCapture
{
    bool canOpen = true;
    bool audioWorks = true;
    bool videoWorks = true;
    int opened = 0;
    int closed = 0;
    GWString audioDevice;
    GWString videoDevice;
    int bytesPerSample = 0;
    int frequency = 0;
    int fps = 0;
    int width = 0;
    GStringList audioDevices;
    GStringList videoDevices;
    std::set<IGCaptureAudioListener*> audioListeners;
    std::set<IGCaptureVideoListener*> videoListeners;

    static FakeCapture& get( );
};
