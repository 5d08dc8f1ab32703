#include "server/core/GServerConfig.h"

#include "base/GUtil.h"
#include "platform/GNet.h"

#include <fstream>
#include <sstream>
#include <variant>

namespace
{
using Member = std::variant<GString GServerConfig::*, int64_t GServerConfig::*, bool GServerConfig::*>;
struct Row
{
    std::string_view key;
    Member member;
    int64_t low = 0;
    int64_t high = 0;
    bool atStart = false; // Takes effect with the next start only.
};
constexpr bool AT_START = true;
constexpr int64_t MANY = 1000000000;

const Row ROWS[] = {
    { "domain", &GServerConfig::domain },
    { "store", &GServerConfig::store, 0, 0, AT_START },
    { "address", &GServerConfig::address, 0, 0, AT_START },
    { "port_base", &GServerConfig::portBase, 0, 65000, AT_START },
    { "roles", &GServerConfig::roles, 0, 0, AT_START },
    { "logon", &GServerConfig::logon, 0, 0, AT_START },
    { "stun_direct", &GServerConfig::stunDirect, 0, 0, AT_START },
    { "stun_punched", &GServerConfig::stunPunched, 0, 0, AT_START },
    { "stun_unpunched", &GServerConfig::stunUnpunched, 0, 0, AT_START },
    { "stun_refresh", &GServerConfig::stunRefresh, 0, 0, AT_START },
    { "signalling", &GServerConfig::signalling, 0, 0, AT_START },
    { "relay", &GServerConfig::relay, 0, 0, AT_START },
    { "relay_udp", &GServerConfig::relayUDP, 0, 0, AT_START },
    { "relay_port_low", &GServerConfig::relayPortLow, 0, 65535 },
    { "relay_port_high", &GServerConfig::relayPortHigh, 0, 65535 },
    { "relay_allow_private", &GServerConfig::relayAllowPrivate },
    { "relay_bytes_per_second", &GServerConfig::relayBytesPerSecond, 1, MANY },
    { "relay_packets_per_second", &GServerConfig::relayPacketsPerSecond, 1, MANY },
    { "relay_idle_seconds", &GServerConfig::relayIdleSeconds, 1, MANY },
    { "relay_allocations", &GServerConfig::relayAllocations, 1, 60000 },
    { "relay_allocations_per_address", &GServerConfig::relayAllocationsPerAddress, 1, 60000 },
    { "log", &GServerConfig::log, 0, 0, AT_START },
    { "log_directory", &GServerConfig::logDirectory, 0, 0, AT_START },
    { "log_bytes", &GServerConfig::logBytes, 1, MANY },
    { "log_quota", &GServerConfig::logQuota, 1, INT64_MAX },
    { "log_quota_per_user", &GServerConfig::logQuotaPerUser, 1, INT64_MAX },
    { "upgrade", &GServerConfig::upgrade, 0, 0, AT_START },
    { "upgrade_directory", &GServerConfig::upgradeDirectory },
    { "upgrade_version", &GServerConfig::upgradeVersion, 0, MANY },
    { "upgrade_file", &GServerConfig::upgradeFile },
    { "upgrade_name", &GServerConfig::upgradeName },
    { "upgrade_priority", &GServerConfig::upgradePriority },
    { "upgrade_url", &GServerConfig::upgradeURL },
    { "tls_certificate", &GServerConfig::tlsCertificate },
    { "tls_key", &GServerConfig::tlsKey },
    { "tls_required", &GServerConfig::tlsRequired },
    { "metrics", &GServerConfig::metrics, 0, 0, AT_START },
    { "password_minimum", &GServerConfig::passwordMinimum, 1, 256 },
    { "password_memory_kib", &GServerConfig::passwordMemoryKiB, 8, 4194304 },
    { "password_passes", &GServerConfig::passwordPasses, 1, 100 },
    { "password_threads", &GServerConfig::passwordThreads, 1, 64, AT_START },
    { "password_pending", &GServerConfig::passwordPending, 1, 100000 },
    { "logons_per_minute", &GServerConfig::logonsPerMinute, 1, MANY },
    { "logon_failures_per_hour", &GServerConfig::logonFailuresPerHour, 1, MANY },
    { "logon_seconds", &GServerConfig::logonSeconds, 1, MANY },
    { "registration_seconds", &GServerConfig::registrationSeconds, 1, MANY },
    { "datagrams_per_second", &GServerConfig::datagramsPerSecond, 1, MANY },
    { "stun_pending", &GServerConfig::stunPending, 1, MANY },
    { "stun_pending_per_source", &GServerConfig::stunPendingPerSource, 1, MANY },
    { "buddies", &GServerConfig::buddies, 1, 300 },
    { "devices_per_user", &GServerConfig::devicesPerUser, 1, 64 },
    { "contacts", &GServerConfig::contacts },
    { "contact_requests", &GServerConfig::contactRequests, 1, 1000 },
    { "contact_requests_per_hour", &GServerConfig::contactRequestsPerHour, 1, MANY },
    { "connections", &GServerConfig::connections, 1, MANY },
    { "connections_per_address", &GServerConfig::connectionsPerAddress, 1, MANY },
    { "drain_seconds", &GServerConfig::drainSeconds, 0, 3600 },
};

GString trim( const GString& text )
{
    const size_t begin = text.find_first_not_of( " \t\r\n" );
    if( begin == GString::npos ) return { };
    return text.substr( begin, text.find_last_not_of( " \t\r\n" ) - begin + 1 );
}

bool assign( GServerConfig& config, const Row& row, const GString& value, GString& error )
{
    if( const auto* text = std::get_if<GString GServerConfig::*>( &row.member ) )
    {
        config.** text = value;
        return true;
    }
    if( const auto* flag = std::get_if<bool GServerConfig::*>( &row.member ) )
    {
        const GString lower = GToLower( std::string_view( value ) );
        const bool yes = lower == "yes" || lower == "true" || lower == "1";
        if( !yes && lower != "no" && lower != "false" && lower != "0" )
        {
            error = GString( row.key ) + " is yes or no, not '" + value + "'";
            return false;
        }
        config.** flag = yes;
        return true;
    }
    const int64_t number = GCalc( std::string_view( value ) );
    const bool digits = !value.empty( ) && value.find_first_not_of( "0123456789" ) == GString::npos;
    if( !digits || number < row.low || number > row.high )
    {
        error = GString( row.key ) + " is a number from " + std::to_string( row.low ) + " to " +
                std::to_string( row.high ) + ", not '" + value + "'";
        return false;
    }
    config.**std::get_if<int64_t GServerConfig::*>( &row.member ) = number;
    return true;
}

// A dotted address, ":" and a port of 0 to 65535; "0.0.0.0" only where clients are told another address.
bool testHost( std::string_view key, const GString& host, bool reached, GString& error )
{
    const size_t colon = host.find( ':' );
    uint32_t address = 0;
    const GString port = colon == GString::npos ? GString( ) : host.substr( colon + 1 );
    const bool good = GNetParseAddress( GUTF8ToWide( host.substr( 0, colon ) ), address ) && !port.empty( ) &&
                      port.size( ) <= 5 && port.find_first_not_of( "0123456789" ) == GString::npos &&
                      GCalc( std::string_view( port ) ) <= 65535;
    if( !good )
        error = GString( key ) + " is a dotted address with a port, not '" + host + "'";
    else if( reached && !address )
        error = GString( key ) + " needs an address that clients can reach: ip:port/ip:port";
    return error.empty( );
}

bool testHosts( std::string_view key, const GString& setting, GString& error )
{
    for( const GWString& item : GSplitList( GUTF8ToWide( setting ) ) )
    {
        const GServerHost host = GServerHost::split( GWideToUTF8( item ) );
        if( !testHost( key, host.bind, false, error ) || !testHost( key, host.reached, true, error ) ) return false;
    }
    return true;
}
} // namespace

bool GServerConfig::parse( const GString& text, GString& error )
{
    std::istringstream lines( text );
    GString line;
    for( int number = 1; std::getline( lines, line ); ++number )
    {
        line = trim( line );
        if( line.empty( ) || line[0] == '#' || line[0] == ';' || line[0] == '[' ) continue;
        const size_t equals = line.find( '=' );
        const GString key = trim( line.substr( 0, equals ) );
        const Row* found = nullptr;
        for( const Row& row : ROWS )
            if( row.key == key ) found = &row;
        if( equals == GString::npos || !found )
            error = equals == GString::npos ? GString( "no '='" ) : GString( "unknown key '" ).append( key ) + "'";
        else if( assign( *this, *found, trim( line.substr( equals + 1 ) ), error ) )
            continue;
        error.insert( 0, "line " + std::to_string( number ) + ": " );
        return false;
    }
    return true;
}

bool GServerConfig::load( const GString& path, GString& error )
{
    std::ifstream file( path, std::ios::binary );
    if( !file )
    {
        error = "can't read '" + path + "'";
        return false;
    }
    std::ostringstream text;
    text << file.rdbuf( );
    if( parse( text.str( ), error ) ) return true;
    error = path + ", " + error;
    return false;
}

bool GServerConfig::finish( GString& error )
{
    for( int64_t offset = 0; const GServerPlace& place : SERVER_PLACES )
    {
        GString& host = this->*place.host;
        // Figures of the operator's own machine are nobody else's: they stay on loopback unless a line says otherwise.
        const GString ip = place.role == ROLE_METRICS ? "127.0.0.1" : address;
        if( host.empty( ) ) host = ip + ":" + std::to_string( portBase ? portBase + offset : 0 );
        if( !testHosts( place.key, host, error ) ) return false;
        ++offset;
    }
    if( relayUDP.empty( ) )
    {
        const GServerHost host = GServerHost::split( relay );
        relayUDP =
            host.bind.substr( 0, host.bind.find( ':' ) ) + "/" + host.reached.substr( 0, host.reached.find( ':' ) );
    }
    const GServerHost udp = GServerHost::split( relayUDP );
    if( !testHost( "relay_udp", udp.bind + ":0", false, error ) ||
        !testHost( "relay_udp", udp.reached + ":0", true, error ) )
        return false;
    if( relayPortLow > relayPortHigh ) error = "relay_port_low is above relay_port_high";
    const GWString name = GUTF8ToWide( domain );
    if( name.empty( ) || name.find( u'@' ) != GWString::npos || GSanitizeName( name ) != name )
        error = "domain is small letters, digits, '-', '_' and '.', not '" + domain + "'";
    if( tlsCertificate.empty( ) != tlsKey.empty( ) ) error = "tls_certificate and tls_key go together";
    if( tlsRequired && tlsCertificate.empty( ) ) error = "tls_required needs tls_certificate and tls_key";
    if( !isAgreed( ) && contacts != CONTACTS_OPEN ) error = "contacts is 'agreed' or 'open', not '" + contacts + "'";
    return error.empty( );
}

std::vector<std::string_view> GServerConfig::takeLive( const GServerConfig& other )
{
    std::vector<std::string_view> waiting;
    for( const Row& row : ROWS )
        std::visit(
            [&]( const auto member )
            {
                if( !row.atStart )
                    this->*member = other.*member;
                else if( this->*member != other.*member )
                    waiting.push_back( row.key );
            },
            row.member );
    return waiting;
}

bool GServerConfig::hasRole( std::string_view role ) const
{
    return GListContains( GSplitList( GUTF8ToWide( roles ) ), GUTF8ToWide( role ) );
}

GServerHost GServerHost::split( const GString& setting )
{
    const size_t slash = setting.find( '/' );
    if( slash == GString::npos ) return { setting, setting };
    return { setting.substr( 0, slash ), setting.substr( slash + 1 ) };
}
