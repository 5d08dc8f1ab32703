#include "server/loadtest/GLoadOptions.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace
{
constexpr std::array<const char*, GLOAD_KINDS> NAMES = { "ping", "stun", "register", "invite" };

struct NumberOption
{
    const char* name;
    int64_t GLoadOptions::*value;
    int64_t least;
    int64_t most;
};
constexpr NumberOption NUMBERS[] = { { "--devices", &GLoadOptions::devices, 1, 50000 },
                                     { "--per-account", &GLoadOptions::perAccount, 1, 1000 },
                                     { "--rate", &GLoadOptions::rate, 1, 1000000 },
                                     { "--seconds", &GLoadOptions::seconds, 1, 86400 },
                                     { "--timeout", &GLoadOptions::timeoutMilliseconds, 1, 60000 } };
struct TextOption
{
    const char* name;
    GString GLoadOptions::*value;
};
constexpr TextOption TEXTS[] = { { "--host", &GLoadOptions::host },
                                 { "--domain", &GLoadOptions::domain },
                                 { "--prefix", &GLoadOptions::prefix },
                                 { "--password", &GLoadOptions::password } };

template <typename Number>
bool readNumber( std::string_view text, Number least, Number most, Number& out )
{
    const auto [end, code] = std::from_chars( text.data( ), text.data( ) + text.size( ), out );
    return code == std::errc( ) && end == text.data( ) + text.size( ) && out >= least && out <= most;
}
// "ping=60,register=40": kinds that are not named are not sent.
bool readMix( std::string_view text, std::array<int64_t, GLOAD_KINDS>& mix )
{
    mix.fill( 0 );
    while( !text.empty( ) )
    {
        const std::string_view item = text.substr( 0, text.find( ',' ) );
        text.remove_prefix( std::min( item.size( ) + 1, text.size( ) ) );
        const size_t mark = item.find( '=' );
        if( mark == std::string_view::npos ) return false;
        const auto name = std::find( NAMES.begin( ), NAMES.end( ), item.substr( 0, mark ) );
        if( name == NAMES.end( ) || !readNumber<int64_t>( item.substr( mark + 1 ), 0, 1000000,
                                                          mix[static_cast<size_t>( name - NAMES.begin( ) )] ) )
            return false;
    }
    return std::any_of( mix.begin( ), mix.end( ), []( int64_t share ) { return share > 0; } );
}
double milliseconds( uint32_t microseconds )
{
    return microseconds / 1000.0;
}
template <typename... Values>
GString format( const char* pattern, Values... values )
{
    char text[320];
    std::snprintf( text, sizeof( text ), pattern, values... );
    return text;
}
} // namespace

GString GLoadOptions::usage( )
{
    return "Usage: velmora-loadtest [options]\n"
           "Logs on, registers many devices and lets them ask a server for a while. Ends with 1 when too much was "
           "lost.\n\n"
           "  --host IP:PORT      logon host of the server (127.0.0.1:4430)\n"
           "  --devices N         devices, each with a socket of its own (100)\n"
           "  --per-account N     devices of one account (16); the server's devices_per_user is a limit\n"
           "  --prefix NAME       accounts are NAME1, NAME2, ... (load); made when they are not there\n"
           "  --password TEXT     of all of them (velmora-loadtest)\n"
           "  --domain NAME       the server's domain (velmora.local)\n"
           "  --rate N            requests a second of all devices (200); the server's datagrams_per_second is a "
           "limit\n"
           "  --seconds N         how long (10)\n"
           "  --mix LIST          shares of the requests (ping=60,stun=10,register=20,invite=10)\n"
           "  --timeout N         milliseconds after which an answer counts as lost (2000)\n"
           "  --max-loss PERCENT  what may stay without a good answer (1)\n"
           "  --json              figures as JSON instead of a table\n";
}

bool GLoadOptions::parse( const std::vector<GString>& arguments, GString& error )
{
    for( size_t i = 0; i < arguments.size( ); ++i )
    {
        const GString& name = arguments[i];
        if( name == "--json" )
        {
            json = true;
            continue;
        }
        const bool last = i + 1 == arguments.size( );
        const GString value = last ? GString( ) : arguments[++i];
        const auto number = std::find_if( std::begin( NUMBERS ), std::end( NUMBERS ),
                                          [&name]( const NumberOption& option ) { return name == option.name; } );
        const auto text = std::find_if( std::begin( TEXTS ), std::end( TEXTS ),
                                        [&name]( const TextOption& option ) { return name == option.name; } );
        bool good = !last;
        if( number != std::end( NUMBERS ) )
            good = good && readNumber( value, number->least, number->most, this->*number->value );
        else if( text != std::end( TEXTS ) )
            this->*text->value = value;
        else if( name == "--mix" )
            good = good && readMix( value, mix );
        else if( name == "--max-loss" )
            good = good && readNumber( value, 0.0, 100.0, maxLossPercent );
        else
        {
            error = "unknown option '" + name + "'";
            return false;
        }
        if( !good )
        {
            error = "'" + value + "' is no value of " + name;
            return false;
        }
    }
    return true;
}

uint32_t GLoadFigures::percentile( const std::vector<uint32_t>& sorted, double part )
{
    if( sorted.empty( ) ) return 0;
    const auto place = static_cast<size_t>( part * static_cast<double>( sorted.size( ) ) );
    return sorted[std::min( place, sorted.size( ) - 1 )];
}
double GLoadFigures::lossPercent( ) const
{
    uint64_t sent = 0;
    uint64_t bad = 0;
    for( const Kind& kind : kinds )
    {
        sent += kind.sent;
        bad += kind.lost + kind.errors;
    }
    return sent ? 100.0 * static_cast<double>( bad ) / static_cast<double>( sent ) : 100;
}

GString GLoadFigures::table( ) const
{
    GString out = format( "%-10s %9s %11s %8s %8s %9s %9s %9s %9s\n", "request", "sent", "answers/s", "lost", "errors",
                          "p50 ms", "p90 ms", "p99 ms", "max ms" );
    for( size_t i = 0; i < GLOAD_KINDS; ++i )
    {
        const Kind& kind = kinds[i];
        if( !kind.sent ) continue;
        std::vector<uint32_t> sorted = kind.latencies;
        std::sort( sorted.begin( ), sorted.end( ) );
        out += format( "%-10s %9llu %11.1f %8llu %8llu %9.3f %9.3f %9.3f %9.3f\n", NAMES[i],
                       static_cast<unsigned long long>( kind.sent ), static_cast<double>( sorted.size( ) ) / seconds,
                       static_cast<unsigned long long>( kind.lost ), static_cast<unsigned long long>( kind.errors ),
                       milliseconds( percentile( sorted, 0.5 ) ), milliseconds( percentile( sorted, 0.9 ) ),
                       milliseconds( percentile( sorted, 0.99 ) ), milliseconds( percentile( sorted, 1 ) ) );
    }
    return out + format( "%lld devices, %.1f s, %llu invitations forwarded, %.2f %% without a good answer\n",
                         static_cast<long long>( devices ), seconds, static_cast<unsigned long long>( forwarded ),
                         lossPercent( ) );
}
GString GLoadFigures::json( ) const
{
    GString out = format( "{\"devices\":%lld,\"seconds\":%.3f,\"forwarded\":%llu,\"loss_percent\":%.3f,\"requests\":{",
                          static_cast<long long>( devices ), seconds, static_cast<unsigned long long>( forwarded ),
                          lossPercent( ) );
    bool first = true;
    for( size_t i = 0; i < GLOAD_KINDS; ++i )
    {
        const Kind& kind = kinds[i];
        if( !kind.sent ) continue;
        std::vector<uint32_t> sorted = kind.latencies;
        std::sort( sorted.begin( ), sorted.end( ) );
        out +=
            format( "%s\"%s\":{\"sent\":%llu,\"answers\":%zu,\"lost\":%llu,\"errors\":%llu,\"answers_per_second\":%.1f,"
                    "\"p50_ms\":%.3f,\"p90_ms\":%.3f,\"p99_ms\":%.3f,\"max_ms\":%.3f}",
                    first ? "" : ",", NAMES[i], static_cast<unsigned long long>( kind.sent ), sorted.size( ),
                    static_cast<unsigned long long>( kind.lost ), static_cast<unsigned long long>( kind.errors ),
                    static_cast<double>( sorted.size( ) ) / seconds, milliseconds( percentile( sorted, 0.5 ) ),
                    milliseconds( percentile( sorted, 0.9 ) ), milliseconds( percentile( sorted, 0.99 ) ),
                    milliseconds( percentile( sorted, 1 ) ) );
        first = false;
    }
    return out + "}}\n";
}
