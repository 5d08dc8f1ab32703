// The STUN role as a pure class: tells a client its address from three hosts, and answers delayed requests when their time comes.
// Time is passed in, in microseconds; what to send is given out as (socket, target, bytes). A request at the direct host takes
// nothing from the heap once the service has answered a few. Network thread only.
#pragma once

#include "runtime/GHTTPHeaders.h"
#include "server/core/GDatagramList.h"
#include "server/core/GMetrics.h"
#include "server/core/GServerConfig.h"

#include <map>

// The sockets of a datagram list.
enum GStunSocket : size_t
{
    STUN_DIRECT,
    STUN_PUNCHED,
    STUN_UNPUNCHED,
    STUN_REFRESH
};

class GStunService
{
public:
    static constexpr int64_t MAX_DELAY = 86400LL * 1000000;

    GStunService( const GServerConfig& config, GMetrics& metrics ) : _config( config ), _metrics( metrics ) {}
    // A datagram that `socket` received from "ip:port"; appends what leaves at once.
    void onDatagram( GStunSocket socket, const GString& from, std::string_view bytes, uint64_t now,
                     GDatagramList& out );
    // Appends the delayed answers that are due.
    void onTime( uint64_t now, GDatagramList& out );
    // Microseconds until the next delayed answer; -1 when none is pending.
    int64_t nextDue( uint64_t now ) const;
    size_t pendingCount( ) const { return _pending.size( ); }

private:
    struct Pending
    {
        GString to;
        GString bytes;
    };
    void _count( std::string_view method, std::string_view result ) { _metrics.count( "stun", method, result ); }
    void _onDirect( const GString& from, GDatagramList& out );
    void _onRefresh( const GString& from, uint64_t now );

    const GServerConfig& _config;
    GMetrics& _metrics;
    GHTTPHeaders _request; // The one in hand; keeps its room.
    GString _indirect;     // Bytes that two hosts send.
    std::multimap<uint64_t, Pending> _pending;
    std::map<GString, int64_t> _pendingBySource; // By address.
};
