// The operator's settings: lines "key = value", "#" or ";" begins a comment, "[section]" lines are allowed and mean nothing.
// A host is "ip:port", or "ip:port/ip:port" when the address to bind differs from the one that clients reach.
// Without a file every role runs on loopback, from port 4430 on.
#pragma once

#include "base/GTypes.h"

#include <array>

// Offsets of the roles' ports from port_base; a base of 0 lets the system choose each.
enum GServerPort
{
    PORT_LOGON,
    PORT_STUN_DIRECT,
    PORT_STUN_PUNCHED,
    PORT_STUN_UNPUNCHED,
    PORT_STUN_REFRESH,
    PORT_SIGNALLING,
    PORT_RELAY,
    PORT_LOG,
    PORT_UPGRADE,
    PORT_METRICS
};

struct GServerConfig
{
    // Takes the lines of `text` over these values; false with the reason in `error`. Values keep what came before the bad line.
    bool parse( const GString& text, GString& error );
    // The same from a file.
    bool load( const GString& path, GString& error );
    // Fills the hosts that no line named and tests all of them; false with the reason.
    bool finish( GString& error );
    bool hasRole( std::string_view role ) const;
    // Only users who have each other on their lists reach each other.
    bool isAgreed( ) const { return contacts == CONTACTS_AGREED; }

    static constexpr std::string_view CONTACTS_AGREED = "agreed";
    static constexpr std::string_view CONTACTS_OPEN = "open";

    GString domain = "velmora.local";
    GString store = "velmora-server.db";
    GString address = "127.0.0.1";
    int64_t portBase = 4430;
    GString roles = "logon, stun, signalling, relay, log, upgrade, metrics";

    GString logon, stunDirect, stunPunched, stunUnpunched, stunRefresh, signalling, relay, log, upgrade, metrics;
    GString relayUDP; // "ip" or "ip/ip": the addresses of allocations.
    int64_t relayPortLow = 0;
    int64_t relayPortHigh = 0;
    bool relayAllowPrivate = false;
    int64_t relayBytesPerSecond = 1000000;
    int64_t relayPacketsPerSecond = 2000;
    int64_t relayIdleSeconds = 1800; // A quiet client behind the relay speaks only every 15 minutes.
    int64_t relayAllocations = 1000;
    int64_t relayAllocationsPerAddress = 32;

    int64_t passwordMinimum = 1;
    int64_t passwordMemoryKiB = 65536; // libsodium's interactive limits.
    int64_t passwordPasses = 2;
    int64_t passwordThreads = 2;
    int64_t passwordPending = 64;
    int64_t logonsPerMinute = 120;     // Of one address.
    int64_t logonFailuresPerHour = 60; // Of one account.
    int64_t logonSeconds = 86400;
    int64_t registrationSeconds = 1800;

    int64_t datagramsPerSecond = 500; // Of one address, each role.
    int64_t stunPending = 100000;
    int64_t stunPendingPerSource = 64;
    int64_t buddies = 200;
    int64_t devicesPerUser = 16;
    GString contacts{ CONTACTS_OPEN };
    int64_t contactRequests = 32;        // Waiting for the answer of one user.
    int64_t contactRequestsPerHour = 60; // ADDBUDDYs of one user, whatever comes of them.
    int64_t connections = 4096;
    int64_t connectionsPerAddress = 256;
    int64_t drainSeconds = 5;

    GString logDirectory = "logs";
    int64_t logBytes = 8 << 20;
    int64_t logQuota = 1 << 30;
    GString upgradeDirectory = "upgrade";
    int64_t upgradeVersion = 0;
    GString upgradeFile = "upgrade.exe";
    GString upgradeName;
    GString upgradePriority;
    GString upgradeURL;
};

// "bind" and "public" of a host setting; equal when the setting names one.
struct GServerHost
{
    GString bind;
    GString reached;
    static GServerHost split( const GString& setting );
};
