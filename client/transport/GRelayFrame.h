// The frame around a datagram that leaves through the relay: a SENDUDP message with the datagram as its content. It is written
// straight into the buffer of a connection, since each packet of a relayed talk needs one. Pure functions, any thread.
#pragma once

#include "base/GTypes.h"

// Appends to `out` what GHTTPHeaders would write: SENDUDP, "Remote-Host" `to`, the bytes. Takes nothing from the heap once `out` has
// grown, for a host of plain characters.
void GRelayFrameAppend( GString& out, GWStringView to, std::string_view bytes );
