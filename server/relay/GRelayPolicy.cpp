#include "server/relay/GRelayPolicy.h"

#include "server/core/GEndpoint.h"

#include <algorithm>

namespace
{
// A burst is a second's worth, but never less than one large datagram.
constexpr double MIN_BURST_BYTES = 65536;
} // namespace

GRelayPolicy::GRelayPolicy( const GServerConfig& config ) : _config( config ), _packets( 1, 1 ), _bytes( 1, 1 )
{
    reload( );
}
void GRelayPolicy::reload( )
{
    const auto packets = static_cast<double>( _config.relayPacketsPerSecond );
    const auto bytes = static_cast<double>( _config.relayBytesPerSecond );
    _packets.setRate( packets, packets );
    _bytes.setRate( bytes, std::max( bytes, MIN_BURST_BYTES ) );
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

bool GRelayPolicy::take( const GString& allocation, bool outward, size_t bytes, uint64_t now )
{
    const GString key = ( outward ? ">" : "<" ) + allocation;
    return _packets.take( key, now ) && _bytes.take( key, now, static_cast<double>( bytes ) );
}
