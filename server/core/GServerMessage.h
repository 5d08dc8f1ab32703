// What all roles do with a message: read it within limits, answer it with its own CSeq, and name it for the figures.
#pragma once

#include "runtime/GHTTPHeaders.h"

namespace GServerMessage
{
constexpr int MAX_DATAGRAM = 8192;
constexpr int MAX_HEADERS = 64;

// One whole request: the bytes are the message and nothing more, it is no response, and it has a CSeq of at most 128 units.
bool readRequest( const GString& datagram, GHTTPHeaders& out );
// The same for requests and responses.
bool read( const GString& datagram, GHTTPHeaders& out );
// An answer that repeats the request's CSeq unchanged, when it has one.
GHTTPHeaders reply( const GHTTPHeaders& request, int code, GWStringView text );
GString compose( const GHTTPHeaders& request, int code, GWStringView text );
// The method when it is one of the system's, otherwise "other": a label for the figures.
GString methodLabel( const GHTTPHeaders& request );
// A header that is there and not empty.
bool has( const GHTTPHeaders& request, std::initializer_list<GWStringView> names );
// Printable text for a log line: control characters as escapes, at most 100 bytes.
GString loggable( GWStringView text );
} // namespace GServerMessage
