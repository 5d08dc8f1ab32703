// The headers of the media library. Its base library has types of the names of ours, which are renamed on the way in.
#pragma once

#define GString GLibString
#define GMutex GLibMutex
#define GThread GLibThread
#define GTimer GLibTimer
#include <gst/app/gstappsink.h>
#include <gst/audio/audio.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#undef GString
#undef GMutex
#undef GThread
#undef GTimer
