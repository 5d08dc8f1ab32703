#include "server/relay/GRelayPolicy.h"

#include "server/core/GEndpoint.h"

#include <algorithm>

namespace
{
// A burst is a second's worth, but never less than one large datagram.
constexpr double MIN_BURST_BYTES = 65536;
} // namespace

GRelayPolicy::GRelayPolicy( const GServerConfig& config ) : _config( config )
{
    reload( );
}
void GRelayPolicy::reload( )
{
    _packets = static_cast<double>( _config.relayPacketsPerSecond );
    _bytes = static_cast<double>( _config.relayBytesPerSecond );
    _burst = std::max( _bytes, MIN_BURST_BYTES );
}
void GRelayPolicy::setOwnHosts( const std::vector<GString>& hosts )
{
    for( const GString& host : hosts )
    {
        uint32_t address = 0;
        unsigned short port = 0;
        if( GEndpoint::parse( host, address, port ) ) _ownHosts.emplace( address, port );
    }
}

bool GRelayPolicy::maySendTo( uint32_t address, unsigned short port ) const
{
    if( !port || !GEndpoint::isUnicast( address ) ) return false;
    return GEndpoint::isPublic( address ) || _config.relayAllowPrivate || _ownHosts.contains( { address, port } );
}

bool GRelayPolicy::take( GRelayShare::Bucket& bucket, size_t bytes, uint64_t now ) const
{
    const auto cost = static_cast<double>( bytes );
    if( bucket.packets < 0 )
        bucket = { _packets, _burst, now };
    else if( now > bucket.time )
    {
        const double passed = static_cast<double>( now - bucket.time ) / 1e6;
        bucket.packets = std::min( _packets, bucket.packets + passed * _packets );
        bucket.bytes = std::min( _burst, bucket.bytes + passed * _bytes );
        bucket.time = now;
    }
    if( bucket.packets < 1 || bucket.bytes < cost ) return false;
    bucket.packets -= 1;
    bucket.bytes -= cost;
    return true;
}
