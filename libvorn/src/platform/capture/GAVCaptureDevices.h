// Capture devices: those of the machine, those that the environment variable VELMORA_DEVICES injects, and media files. The variable
// holds `name=pipeline` entries apart by ";" or by lines; a name may begin with "audio:" or "video:" to tell its kind, "test camera" and
// "tone microphone" need no pipeline. With "@" before it the variable names a file that holds them. Any thread, after
// GCaptureInitialize.
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
// The first of several devices of one name is taken. `step`: microseconds of samples that a microphone hands over at once.
GstElement* GCaptureCreateSource( GCaptureKind kind, const GWString& name, int step = 0 );
// False when the source's device is known to be gone, though the source may go on with another one that it was given instead.
bool GCaptureIsPresent( GstElement* source );
// The file of injected devices; empty when the environment names none.
GString GCaptureListFile( );
// Whether a sound server answers, asked at most once a second while there is none.
bool GCaptureIsServerThere( );
// Calls `changed` with `argument` on a thread of the sound server's when microphones may have come or gone; null ends it.
void GCaptureWatchSources( void ( *changed )( void* ), void* argument );
