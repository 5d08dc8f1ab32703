// Makes the microphone fit to be sent: takes out the echo of what this program plays, lowers steady noise, and brings quiet voices to a
// common level. Settings of the blackboard, read for every buffer: Voice_Treatment turns it on, and each part of it goes on unless
// Voice_Echo, Voice_Noise or Voice_Level says 0. Used by one thread at a time; nothing is allocated but when the frequency changes.
#pragma once

#include "runtime/GInstance.h"

#include <memory>

class GVoiceTreatment
{
public:
    explicit GVoiceTreatment( GInstance* instance );
    ~GVoiceTreatment( );
    GVoiceTreatment( const GVoiceTreatment& ) = delete;
    GVoiceTreatment& operator=( const GVoiceTreatment& ) = delete;

    // Treats the mono samples of one capture buffer in place; `timestamp` in microseconds is that of its first sample. What comes out
    // is one frame of 160 samples late, and as much again where buffers are no whole frames. Without Voice_Treatment they are left
    // untouched.
    void process( uint64_t timestamp, int frequency, int16_t* samples, int count );

private:
    struct Work;

    bool _isOn( GWStringView part ) const;

    GInstance* _instance;
    std::unique_ptr<Work> _work; // Null while nothing is treated.
};
