// Lets the next call of an operating-system function by this program fail or do less than it was asked, for what no machine shows on
// demand. A program with this source calls its own doors in front of the system's.
#pragma once

#include "base/GTypes.h"

namespace FailingCalls
{
enum class Call
{
    SOCKET,
    SETSOCKOPT,
    FCNTL,
    BIND,
    GETSOCKNAME,
    CONNECT,
    SENDTO,
    RECVFROM,
    SENDMMSG,
    RECVMMSG,
    SEND,
    RECV,
    PPOLL,
    GETIFADDRS,
    GETHOSTNAME,
};
// The next call of it gives the error value with `error` in errno.
void fail( Call call, int error );
// The next `times` calls of it tell that they moved so many bytes, and move nothing.
void tell( Call call, long bytes, int times = 1 );
// What the next look-up of a name gives, as dotted addresses; and the name that was looked up last, empty when none was.
void answerLookUp( const std::vector<std::string>& addresses );
std::string lookedUp( );
// Back to the system's own ways.
void reset( );
} // namespace FailingCalls
