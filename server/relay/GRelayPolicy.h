// What the relay may do for a client: where it may send, and how much. Pure; time is passed in, in microseconds.
#pragma once

#include "server/core/GServerConfig.h"

#include <set>

// What an allocation may still spend, outward and inward. Starts full.
struct GRelayShare
{
    struct Bucket
    {
        double packets = -1; // Below 0 nothing was spent yet.
        double bytes = 0;
        uint64_t time = 0;
    };
    Bucket outward;
    Bucket inward;
};

class GRelayPolicy
{
public:
    explicit GRelayPolicy( const GServerConfig& config );
    // Hosts of this server that relayed clients must reach wherever they are: the signalling hosts.
    void setOwnHosts( const std::vector<GString>& hosts );
    void reload( );
    // Never loopback, link-local, multicast or private ranges, unless the operator allows them.
    bool maySendTo( uint32_t address, unsigned short port ) const;
    // Spends a packet of `bytes` in one direction of an allocation; false, and nothing is spent, when it has had its share.
    bool take( GRelayShare::Bucket& bucket, size_t bytes, uint64_t now ) const;

private:
    const GServerConfig& _config;
    std::set<std::pair<uint32_t, unsigned short>> _ownHosts;
    double _packets = 0; // A second's.
    double _bytes = 0;
    double _burst = 0;
};
