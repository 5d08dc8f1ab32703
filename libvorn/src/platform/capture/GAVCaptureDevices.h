// Capture devices: those of the machine, those that the environment variable VELMORA_DEVICES injects, and media files. The variable
// holds `name=pipeline` entries apart by ";"; a name may begin with "audio:" or "video:" to tell its kind, "test camera" and
// "tone microphone" need no pipeline.
#pragma once

#include "base/GTypes.h"
#include "platform/capture/GCaptureLibrary.h"

enum GCaptureKind
{
    GCAPTURE_AUDIO,
    GCAPTURE_VIDEO
};

// Devices of a kind that are looked at.
constexpr int MAX_MONIKERS = 10;

// Starts the media library once; false when that fails.
bool GCaptureInitialize( );
// Friendly names, at most MAX_MONIKERS of a kind.
GStringList GCaptureListDevices( GCaptureKind kind );
// An element with one source pad, floating, or null when there is no such device.
GstElement* GCaptureCreateSource( GCaptureKind kind, const GWString& name );
// Picks the capability of the source that is nearest to the wish in that pixel format ("YUY2", "RGB") and narrows `picked` to it.
// False when the source has none.
bool GCaptureConfigureVideo( GstCaps* offered, const char* subtype, int fps, int width, int height, GstCaps*& picked );
// The bytes of one audio frame: 50 ms raised to whole codec frames of 160 samples.
int GCaptureChunkBytes( int frequency, int bytesPerSample, int latency );
