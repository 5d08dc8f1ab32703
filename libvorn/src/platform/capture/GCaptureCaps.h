// Between the media library's words for formats and the system's own: capabilities of a device, headers of a stream. Any thread.
#pragma once

#include "platform/GAVCapture.h"
#include "platform/capture/GCaptureLibrary.h"
#include "platform/common/GAVCaptureChoice.h"
#include "platform/common/GBitmapInfoHeader.h"

// What a source offers, one capability a structure and pixel format. Empty when it tells nothing.
std::vector<GCaptureVideoCapability> GCaptureReadVideo( const GstCaps* offered );
std::vector<GCaptureAudioCapability> GCaptureReadAudio( const GstCaps* offered );
// The offer of a choice narrowed to one format, as near to the choice as the offer allows. The caller's to release.
GstCaps* GCaptureNarrow( const GstCaps* offered, const GCaptureVideoChoice& choice );
// The one format of mono 16-bit samples at a frequency. The caller's to release.
GstCaps* GCaptureNarrow( int frequency );
// The library's name of a pixel format ("RGB" for "RGB24").
const char* GCaptureLibraryName( std::string_view subtype );
// True when the pixels of a video stream have a shape below zero, as some film files tell it.
bool GCaptureIsShapeless( const GstCaps* caps );
// The header of a stream; with `bottomUp` its rows are stored from the bottom. False when the caps are no raw video.
bool GCaptureReadHeader( const GstCaps* caps, bool bottomUp, GBitmapInfoHeader& header );
// False when the caps are no plain audio.
bool GCaptureReadFormat( const GstCaps* caps, GAudioFormat& format );
