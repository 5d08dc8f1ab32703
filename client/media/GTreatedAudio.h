// Stands between the recorder and all who listen to the microphone: each buffer is treated once (GVoiceTreatment), and everybody gets what
// came out. Buffers come on the capture thread of the microphone; listeners come and go on any thread.
#pragma once

#include "client/media/GVoiceTreatment.h"
#include "platform/GAVCapture.h"
#include "platform/GThread.h"

class GTreatedAudio : public IGCaptureAudioListener
{
public:
    explicit GTreatedAudio( GInstance* instance );
    ~GTreatedAudio( ) override;
    GTreatedAudio( const GTreatedAudio& ) = delete;
    GTreatedAudio& operator=( const GTreatedAudio& ) = delete;

    // The listener stays the caller's and must leave before it ends.
    void add( IGCaptureAudioListener* listener );
    // Waits for a call that is running; none comes afterwards.
    void remove( IGCaptureAudioListener* listener );
    void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length ) override;

private:
    GMutex _mutex;
    GVoiceTreatment _treatment;
    std::vector<IGCaptureAudioListener*> _listeners;
    std::vector<int16_t> _samples;
};
