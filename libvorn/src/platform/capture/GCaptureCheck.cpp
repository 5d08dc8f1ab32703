#include "platform/capture/GCaptureCheck.h"

#include "base/GPortable.h"

#include <stdexcept>

void GCaptureCheck( bool good, const char* call, const GError* error )
{
    if( good ) return;
    GLOG( u"ERROR Error HR return value: ", error ? error->code : -1, u" '", error ? error->message : "no such part",
          u"' in ", call );
    throw std::runtime_error( call );
}

GstElement* GCaptureMakeElement( const char* factory )
{
    GstElement* element = gst_element_factory_make( factory, nullptr );
    GCaptureCheck( element, factory );
    return element;
}
