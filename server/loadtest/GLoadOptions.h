// What velmora-loadtest is asked to do, and what it has measured, as a table and as JSON.
#pragma once

#include "base/GTypes.h"

#include <array>

enum GLoadKind : size_t
{
    GLOAD_PING,
    GLOAD_STUN,
    GLOAD_REGISTER,
    GLOAD_INVITE,
    GLOAD_KINDS
};

struct GLoadOptions
{
    // Takes the program's arguments; false with the reason.
    bool parse( const std::vector<GString>& arguments, GString& error );
    static GString usage( );

    GString host = "127.0.0.1:4430"; // The logon host.
    GString domain = "velmora.local";
    GString prefix = "load"; // Accounts are prefix1, prefix2 and so on.
    GString password = "velmora-loadtest";
    int64_t devices = 100;
    int64_t perAccount = 16;
    int64_t rate = 200; // Requests a second of all devices.
    int64_t seconds = 10;
    int64_t timeoutMilliseconds = 2000;
    double maxLossPercent = 1;
    std::array<int64_t, GLOAD_KINDS> mix{ 60, 10, 20, 10 };
    bool json = false;
};

struct GLoadFigures
{
    struct Kind
    {
        uint64_t sent = 0;
        uint64_t lost = 0;
        uint64_t errors = 0;             // Answers that refuse.
        std::vector<uint32_t> latencies; // Microseconds, of each answer.
    };
    // Of a sorted list: the value below which that part of all lies; 0 of none.
    static uint32_t percentile( const std::vector<uint32_t>& sorted, double part );
    // Requests without a good answer, in per cent of all.
    double lossPercent( ) const;
    GString table( ) const;
    GString json( ) const;

    std::array<Kind, GLOAD_KINDS> kinds;
    uint64_t forwarded = 0; // INVITEs that reached another device.
    int64_t devices = 0;
    double seconds = 0;
};
