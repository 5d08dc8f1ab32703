// Capture devices: those of the machine, those that the environment variable VELMORA_DEVICES injects, and media files. The variable
// holds `name=pipeline` entries apart by ";"; a name may begin with "audio:" or "video:" to tell its kind, "test camera" and
// "tone microphone" need no pipeline. Any thread, after GCaptureInitialize.
#pragma once

#include "base/GTypes.h"
#include "platform/capture/GCaptureLibrary.h"
#include "platform/common/GCaptureName.h"

enum GCaptureKind
{
    GCAPTURE_AUDIO,
    GCAPTURE_VIDEO
};

// Devices of a kind that are looked at.
constexpr int MAX_MONIKERS = 10;

// Starts the media library once; false when that fails.
bool GCaptureInitialize( );
// A regular file, which can stand in for a device.
bool GCaptureIsFile( const GWString& name );
// Friendly names of the first MAX_MONIKERS devices of a kind, injected ones first. Devices beyond these are not found by name either.
GStringList GCaptureListDevices( GCaptureKind kind );
// An element with the source pad "src", floating, or null when there is no such device or it cannot be bound, which is logged.
// The first of several devices of one name is taken.
GstElement* GCaptureCreateSource( GCaptureKind kind, const GWString& name );
// False when the source's device is known to be gone, though the source may go on with another one that it was given instead.
bool GCaptureIsPresent( GstElement* source );
