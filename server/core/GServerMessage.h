// What all roles do with a message: read it within limits, answer it with its own CSeq, and name it for the figures.
#pragma once

#include "runtime/GHTTPHeaders.h"

namespace GServerMessage
{
constexpr int MAX_DATAGRAM = 32768; // A full buddy list fits.
constexpr int MAX_HEADERS = 64;

// One whole request: the bytes are the message and nothing more, it is no response, and it has a CSeq of at most 128 units.
bool readRequest( std::string_view datagram, GHTTPHeaders& out );
// The same for requests and responses.
bool read( std::string_view datagram, GHTTPHeaders& out );
// An answer that repeats the request's CSeq unchanged, when it has one.
GHTTPHeaders reply( const GHTTPHeaders& request, int code, GWStringView text );
GString compose( const GHTTPHeaders& request, int code, GWStringView text );
// For answers by the hundred thousand: the first line of a 200 and the request's CSeq; then headers in the order of their names,
// and `end`. The bytes are those of a composed message, in a string that keeps its room.
void begin( GString& out, const GHTTPHeaders& request );
void append( GString& out, std::string_view name, std::string_view plainValue );
void append( GString& out, std::string_view name, GWStringView value );
void end( GString& out );
// The method when it is one of the system's, otherwise "other": a label for the figures.
const GString& methodLabel( const GHTTPHeaders& request );
// A header that is there and not empty.
bool has( const GHTTPHeaders& request, std::initializer_list<GWStringView> names );
// Printable text for a log line, of at most 100 units: "?" stands for whatever could end its value or its line, or move a terminal.
GString loggable( GWStringView text );
// The same of any length and with quotes, for a terminal.
GString printable( GWStringView text );
} // namespace GServerMessage
