// What the relay may do for a client: where it may send, and how much. Pure; time is passed in, in microseconds.
#pragma once

#include "server/core/GRateLimit.h"
#include "server/core/GServerConfig.h"

#include <set>

class GRelayPolicy
{
public:
    explicit GRelayPolicy( const GServerConfig& config );
    // Hosts of this server that relayed clients must reach wherever they are: the signalling hosts.
    void setOwnHosts( const std::vector<GString>& hosts );
    void reload( );
    // Never loopback, link-local, multicast or private ranges, unless the operator allows them.
    bool maySendTo( uint32_t address, unsigned short port ) const;
    // Spends a packet of `bytes` in one direction of an allocation; false when it has had its share.
    bool take( const GString& allocation, bool outward, size_t bytes, uint64_t now );

private:
    const GServerConfig& _config;
    std::set<std::pair<uint32_t, unsigned short>> _ownHosts;
    GRateLimit _packets;
    GRateLimit _bytes;
};
