// The one way in which calls of the media library fail while a graph is built: an ERROR line and an exception that ends the open.
#pragma once

#include "platform/capture/GCaptureLibrary.h"

#include <memory>

// Throws std::runtime_error unless `good`. `call` is the source text of the call; `error` may be null and is not released.
void GCaptureCheck( bool good, const char* call, const GError* error = nullptr );

// An object of the library that is released with the scope unless it was handed on.
struct GCaptureRelease
{
    void operator( )( void* object ) const { gst_object_unref( object ); }
};
template <typename Object>
using GCaptureRef = std::unique_ptr<Object, GCaptureRelease>;

// A new element; throws when the library has none of that kind.
GstElement* GCaptureMakeElement( const char* factory );
