// The operator's settings: lines "key = value", "#" or ";" begins a comment, "[section]" lines are allowed and mean nothing.
// A host is "ip:port", or "ip:port/ip:port" when the address to bind differs from the one that clients reach.
// Without a file every role runs on loopback, from port 4430 on.
#pragma once

#include "base/GTypes.h"

#include <vector>

struct GServerConfig
{
    // Takes the lines of `text` over these values; false with the reason in `error`. Values keep what came before the bad line.
    bool parse( const GString& text, GString& error );
    // The same from a file.
    bool load( const GString& path, GString& error );
    // Fills the hosts that no line named and tests all of them; false with the reason.
    bool finish( GString& error );
    bool hasRole( std::string_view role ) const;
    // Takes from other finished settings what a running server can change at once; the keys of those that differ and wait for the next
    // start.
    std::vector<std::string_view> takeLive( const GServerConfig& other );
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

    GString tlsCertificate; // PEM files; empty for streams without TLS.
    GString tlsKey;
    bool tlsRequired = false; // The logon takes nothing else.

    GString logDirectory = "logs";
    int64_t logBytes = 8 << 20;
    int64_t logQuota = 1 << 30;
    int64_t logQuotaPerUser = 128 << 20;
    GString upgradeDirectory = "upgrade";
    int64_t upgradeVersion = 0;
    GString upgradeFile = "upgrade.exe";
    GString upgradeName;
    GString upgradePriority;
    GString upgradeURL;
};

// A host of a role: the setting that names it, and how it listens. Without a line it is `address` with port_base + its index here; a
// base of 0 lets the system choose each port.
struct GServerPlace
{
    std::string_view role;
    std::string_view key;
    GString GServerConfig::*host;
    bool stream;
};
inline constexpr std::string_view ROLE_METRICS = "metrics";
inline constexpr GServerPlace SERVER_PLACES[] = {
    { "logon", "logon", &GServerConfig::logon, true },
    { "stun", "stun_direct", &GServerConfig::stunDirect, false },
    { "stun", "stun_punched", &GServerConfig::stunPunched, false },
    { "stun", "stun_unpunched", &GServerConfig::stunUnpunched, false },
    { "stun", "stun_refresh", &GServerConfig::stunRefresh, false },
    { "signalling", "signalling", &GServerConfig::signalling, false },
    { "relay", "relay", &GServerConfig::relay, true },
    { "log", "log", &GServerConfig::log, true },
    { "upgrade", "upgrade", &GServerConfig::upgrade, true },
    { ROLE_METRICS, "metrics", &GServerConfig::metrics, true },
};

// "bind" and "public" of a host setting; equal when the setting names one.
struct GServerHost
{
    GString bind;
    GString reached;
    static GServerHost split( const GString& setting );
};
