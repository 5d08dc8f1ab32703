// Which of the capabilities of a capture device is taken, and how large its audio frames are. Pure but for log lines, any thread.
#pragma once

#include "base/GTypes.h"

// Bounds included.
struct GCaptureRange
{
    double least = 0;
    double greatest = 0;

    // How far a value lies outside, 0 inside.
    double distance( double value ) const;
    // The value of the range that is nearest.
    double fit( double value ) const;
    bool holds( double value ) const { return distance( value ) == 0; }
};

struct GCaptureVideoCapability
{
    bool isVideo = true;
    bool isPlain = true; // Uncompressed rows in ordinary memory.
    GString subtype;     // "YUY2", "RGB24", or whatever the device calls it.
    GCaptureRange width;
    GCaptureRange height;
    GCaptureRange fps; // Frames a second.
};
struct GCaptureVideoChoice
{
    int index = -1; // In the list of capabilities.
    GString subtype;
    double distance = 0;
    // The wish, made to fit the capability.
    double fps = 0;
    int width = 0;
    int height = 0;
};
// The capability of that subtype with the smallest sum of distances in width, height and frames a second; the first of equals
// stays. False, with a WARNING, when there is none.
bool GAVCaptureConfigureVideo( const std::vector<GCaptureVideoCapability>& capabilities, std::string_view subtype,
                               int fps, int width, int height, GCaptureVideoChoice& choice );
// YUY2 first and RGB24 when that fails; false, with a WARNING, when neither is offered.
bool GAVCaptureChooseVideo( const std::vector<GCaptureVideoCapability>& capabilities, int fps, int width, int height,
                            GCaptureVideoChoice& choice );

struct GCaptureAudioCapability
{
    bool isAudio = true;
    bool isPCM = true;
    bool isPlain = true; // Channels interleaved, in ordinary memory.
    GCaptureRange bits;
    GCaptureRange frequency;
};
// Index of the first capability that holds the wish, -1 when none does. `latency` (milliseconds) is logged only. There must be one
// capability at least.
int GAVCaptureConfigureAudio( const std::vector<GCaptureAudioCapability>& capabilities, int frequency,
                              int bytesPerSample, int latency );
// Bytes of an audio frame: `latency` milliseconds of mono samples, raised to whole codec frames of 160 samples, one at least.
int GAVCaptureBufferSize( int frequency, int bytesPerSample, int latency );
// The most whole codec frames within `latency` milliseconds, one at least.
int GAVCaptureBufferSizeWithin( int frequency, int bytesPerSample, int latency );
// Microseconds that so many bytes of mono samples take, rounded up: a library that rounds its way back down arrives at the same bytes.
int GAVCaptureTimeOf( int bytes, int frequency, int bytesPerSample );
