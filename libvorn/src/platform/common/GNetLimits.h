// Sizes of datagrams that every backend of the network family keeps.
#pragma once

namespace GNetLimits
{
inline constexpr int MTU = 1472;          // Bytes: 1500 less the IPv4 and UDP headers.
inline constexpr int RECV_SIZE = 4 * MTU; // Bytes of a datagram that are read without GNetUDPPortSetLargeReads.
} // namespace GNetLimits
