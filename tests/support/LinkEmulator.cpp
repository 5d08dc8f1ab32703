// A link between two network devices whose frames this program passes on: with delay, jitter, loss, frames that overtake others and
// frames that come twice, all drawn from a seed, anew in each direction.
// Usage: link_emulator FD FD      both are TAP devices that the caller has opened
// Each line of input changes the link, in any order: "delay 20 jitter 10 loss 5 reorder 2 duplicate 1 seed 7 queue 2000", times in
// milliseconds, shares in per cent. What a line does not name stays. The answer is one line with what has passed since the last one.
// The end of the input ends the program.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <map>
#include <poll.h>
#include <random>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{
using Clock = std::chrono::steady_clock;
using std::chrono::duration_cast;
using std::chrono::nanoseconds;
constexpr size_t LONGEST_FRAME = 65536;
constexpr int HEADER = 14; // Of Ethernet.
constexpr uint8_t IPV4[] = { 0x08, 0x00 };
// Frames that overtake are those after one that is held back: by the jitter and this.
constexpr double OVERTAKEN_MS = 15;

struct Settings
{
    std::map<std::string, double> values{ { "delay", 0 },     { "jitter", 0 }, { "loss", 0 },    { "reorder", 0 },
                                          { "duplicate", 0 }, { "seed", 1 },   { "queue", 5000 } };
    double operator[]( const char* name ) const { return values.at( name ); }
};

struct Counts
{
    uint64_t passed = 0, lost = 0, overtaken = 0, doubled = 0, overflowed = 0;
};

class Direction
{
public:
    Direction( int from, int to ) : _from( from ), _to( to ) {}
    void seed( uint64_t value ) { _random.seed( value ); }
    // Reads all that has come.
    void take( const Settings& settings );
    // Delivers what is due.
    void give( Clock::time_point now );
    bool hasNext( ) const { return !_waiting.empty( ); }
    Clock::time_point next( ) const { return _waiting.begin( )->first; }
    int handle( ) const { return _from; }
    Counts counts;

private:
    bool _happens( double percent ) { return std::uniform_real_distribution<double>( 0, 100 )( _random ) < percent; }
    void _hold( const char* frame, size_t length, const Settings& settings );

    int _from, _to;
    std::mt19937_64 _random{ 1 };
    std::multimap<Clock::time_point, std::vector<char>> _waiting; // Equal times stay in order.
    Clock::time_point _last{ };
};

void Direction::take( const Settings& settings )
{
    static std::array<char, LONGEST_FRAME> frame;
    for( ;; )
    {
        const ssize_t length = read( _from, frame.data( ), frame.size( ) );
        if( length <= 0 ) return;
        // Neighbours find each other over any link: what is not IP is only late.
        const bool isIP = length > HEADER && std::equal( std::begin( IPV4 ), std::end( IPV4 ), frame.data( ) + 12,
                                                         []( uint8_t a, char b ) { return a == uint8_t( b ); } );
        if( isIP && _happens( settings["loss"] ) )
        {
            ++counts.lost;
            continue;
        }
        _hold( frame.data( ), size_t( length ), settings );
        if( !isIP || !_happens( settings["duplicate"] ) ) continue;
        ++counts.doubled;
        _hold( frame.data( ), size_t( length ), settings );
    }
}

void Direction::_hold( const char* frame, size_t length, const Settings& settings )
{
    if( double( _waiting.size( ) ) >= settings["queue"] )
    {
        ++counts.overflowed;
        return;
    }
    double late = settings["delay"];
    if( settings["jitter"] > 0 ) late += std::uniform_real_distribution<double>( 0, settings["jitter"] )( _random );
    const bool isOvertaken = _happens( settings["reorder"] );
    if( isOvertaken ) late += settings["jitter"] + OVERTAKEN_MS;
    Clock::time_point due =
        Clock::now( ) + duration_cast<nanoseconds>( std::chrono::duration<double, std::milli>( late ) );
    // Jitter alone changes no order.
    if( isOvertaken )
        ++counts.overtaken;
    else
        due = _last = std::max( due, _last );
    _waiting.emplace( due, std::vector<char>( frame, frame + length ) );
}

void Direction::give( Clock::time_point now )
{
    while( hasNext( ) && next( ) <= now )
    {
        const std::vector<char>& frame = _waiting.begin( )->second;
        // A device that is down or full takes nothing: lost, as on any cable.
        const bool taken = write( _to, frame.data( ), frame.size( ) ) == ssize_t( frame.size( ) );
        ++( taken ? counts.passed : counts.overflowed );
        _waiting.erase( _waiting.begin( ) );
    }
}

// False at the end of the input, or for a line that makes no sense.
bool obey( Settings& settings, Direction ( &directions )[2] )
{
    std::string line;
    if( !std::getline( std::cin, line ) ) return false;
    std::istringstream words( line );
    std::string name;
    double value = 0;
    while( words >> name >> value )
    {
        if( !settings.values.contains( name ) )
        {
            std::cerr << "link_emulator: no setting '" << name << "'\n";
            return false;
        }
        settings.values[name] = value;
        if( name == "seed" )
            for( int i = 0; i < 2; i++ ) directions[i].seed( uint64_t( value ) * 2 + uint64_t( i ) );
    }
    const char* ends[] = { "there", "back" };
    for( int i = 0; i < 2; i++ )
    {
        const Counts& counts = directions[i].counts;
        std::cout << ends[i] << ' ' << counts.passed << ' ' << counts.lost << ' ' << counts.overtaken << ' '
                  << counts.doubled << ' ' << counts.overflowed << ( i ? "\n" : " " );
        directions[i].counts = { };
    }
    std::cout.flush( );
    return true;
}
} // namespace

int main( int argc, char** argv )
{
    if( argc != 3 ) return 2;
    const int one = std::atoi( argv[1] );
    const int other = std::atoi( argv[2] );
    for( const int end : { one, other } ) fcntl( end, F_SETFL, fcntl( end, F_GETFL ) | O_NONBLOCK );
    std::ios::sync_with_stdio( false );
    Settings settings;
    Direction directions[2] = { Direction( one, other ), Direction( other, one ) };
    for( ;; )
    {
        pollfd waits[] = { { one, POLLIN, 0 }, { other, POLLIN, 0 }, { STDIN_FILENO, POLLIN, 0 } };
        timespec patience{ };
        bool isBound = false;
        for( Direction& direction : directions )
        {
            direction.give( Clock::now( ) );
            if( !direction.hasNext( ) ) continue;
            const auto left = std::max( nanoseconds( 0 ), nanoseconds( direction.next( ) - Clock::now( ) ) ).count( );
            const timespec wanted{ left / 1000000000, left % 1000000000 };
            if( !isBound || left < patience.tv_sec * 1000000000 + patience.tv_nsec ) patience = wanted;
            isBound = true;
        }
        if( ppoll( waits, 3, isBound ? &patience : nullptr, nullptr ) < 0 && errno != EINTR ) return 1;
        for( Direction& direction : directions ) direction.take( settings );
        if( waits[2].revents && !obey( settings, directions ) ) return 0;
    }
}
