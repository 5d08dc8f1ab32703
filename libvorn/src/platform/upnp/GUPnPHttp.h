// HTTP as far as a gateway speaks it, bounded in time and size: what answers a search may be anything at all.
#pragma once

#include "base/GTypes.h"

// "http://a.b.c.d[:port]/path" taken apart.
struct GUPnPAddress
{
    GWString host; // With its port.
    GString path;
};
// False for any other form: names, signs that do not belong into a path, hosts that are no single machine.
bool GUPnPSplitURL( std::string_view url, GUPnPAddress& address );

struct GUPnPAnswer
{
    int status = 0;
    GString body; // Without the frames of chunks.
};
enum class GUPnPProgress
{
    PARTIAL,
    WHOLE,
    BAD, // Not HTTP, or more than 256 KiB.
};
// Reads what has come so far; `ended` when nothing more will come. Pure text.
GUPnPProgress GUPnPReadAnswer( std::string_view received, bool ended, GUPnPAnswer& answer );

// Sends a request and reads its answer; false when no whole one came within five seconds. Blocks so long.
bool GUPnPExchange( const GWString& host, const GString& request, GUPnPAnswer& answer );
