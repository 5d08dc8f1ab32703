// What the benchmarks share: a case times the project's way and a named library's way of the same work by turns in one run, so that
// only their ratio counts and not the machine. Each case prints one line of JSON,
//   {"bench","case","project","anchor","ratio","n","spread_pct","unit","must","goal"}
// where ratio is project over anchor, the median over the rounds, and spread_pct the distance from its lower to its upper quartile.
// A rate should reach `must` and `goal`, a time or a size should stay below them. Checks that no clock enters run with --counts too.
#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Bench
{
// Allocations of the calling thread so far, libraries included: malloc itself is counted.
long allocations( );

// Keeps the compiler from leaving out work whose result nobody reads.
template <typename T>
void keep( const T& value )
{
    asm volatile( "" : : "r"( &value ) : "memory" );
}

struct Limits
{
    double must;
    double goal;
};

class Suite
{
public:
    // Options of the program: --counts runs only what no clock enters; other words choose the cases whose names hold one of them.
    Suite( std::string name, int argc, char** argv );

    // Time of the calling thread by default, which other programs on the machine disturb less; wall time for work on many threads.
    void useWallClock( bool wall ) { _clock = wall ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID; }

    // `units` of `unit` a second, such as 2.07 for "Mpx/s" of a picture of 1080p: the higher the better.
    template <typename Project, typename Anchor>
    void rate( const std::string& name, const char* unit, double units, Limits limits, Project project, Anchor anchor )
    {
        if( !_isTimed( name ) ) return;
        _report( name, unit, limits, _alternate( project, anchor ), [units]( double s ) { return units / s; } );
    }
    // A time in "s", "ms", "us" or "ns" a call: the lower the better.
    template <typename Project, typename Anchor>
    void time( const std::string& name, const char* unit, Limits limits, Project project, Anchor anchor )
    {
        if( !_isTimed( name ) ) return;
        const double scale = _scaleOf( unit );
        _report( name, unit, limits, _alternate( project, anchor ), [scale]( double s ) { return s * scale; } );
    }
    // Values that were measured elsewhere, such as the processor time of other programs: project and anchor of each round.
    void measured( const std::string& name, const char* unit, Limits limits,
                   const std::vector<std::pair<double, double>>& values )
    {
        std::vector<Round> rounds;
        for( const auto& [project, anchor] : values ) rounds.push_back( { project, anchor } );
        if( !rounds.empty( ) ) _report( name, unit, limits, rounds, []( double value ) { return value; } );
    }
    // Whether a case that takes a while to set up is wanted.
    bool wants( const std::string& name ) const { return _isTimed( name ); }
    // A size that no clock enters, such as "bytes": the lower the better. Passing `must` fails the run.
    void size( const std::string& name, const char* unit, Limits limits, double project, double anchor );
    // The allocations of one call of `work`, once it is warm. More than `most` fail the run.
    template <typename Work>
    void allocationsOf( const std::string& name, long most, Work work )
    {
        if( !_isChosen( name ) ) return;
        work( );
        work( );
        const long before = allocations( );
        work( );
        _reportCount( name, allocations( ) - before, most );
    }

    // Allocations that the caller has counted, where a call of the work needs something that takes from the heap itself.
    void counted( const std::string& name, long count, long most )
    {
        if( _isChosen( name ) ) _reportCount( name, count, most );
    }

    // What main returns: 1 when a check without a clock failed.
    int finish( ) const { return _failed ? 1 : 0; }

private:
    struct Round
    {
        double project; // Seconds a call.
        double anchor;
    };
    static constexpr int ROUNDS = 101;
    static constexpr double BATCH_SECONDS = 0.001;

    double _now( ) const
    {
        timespec now;
        clock_gettime( _clock, &now );
        return static_cast<double>( now.tv_sec ) + static_cast<double>( now.tv_nsec ) * 1e-9;
    }
    template <typename Work>
    double _secondsOf( Work& work, long times ) const
    {
        const double begin = _now( );
        for( long i = 0; i < times; i++ )
        {
            work( );
            asm volatile( "" : : : "memory" );
        }
        return ( _now( ) - begin ) / static_cast<double>( times );
    }
    // How many calls make a batch long enough for the clock. Also warms up.
    template <typename Work>
    long _batchOf( Work& work ) const
    {
        long times = 1;
        for( ;; times *= 2 )
        {
            const double seconds = _secondsOf( work, times ) * static_cast<double>( times );
            if( seconds >= BATCH_SECONDS / 2 ) return times;
        }
    }
    template <typename Project, typename Anchor>
    std::vector<Round> _alternate( Project& project, Anchor& anchor ) const
    {
        const long projectTimes = _batchOf( project ), anchorTimes = _batchOf( anchor );
        std::vector<Round> rounds( ROUNDS );
        for( size_t i = 0; i < rounds.size( ); i++ )
        {
            if( i % 2 == 0 ) rounds[i].project = _secondsOf( project, projectTimes );
            rounds[i].anchor = _secondsOf( anchor, anchorTimes );
            if( i % 2 == 1 ) rounds[i].project = _secondsOf( project, projectTimes );
        }
        return rounds;
    }

    bool _isChosen( const std::string& name ) const;
    bool _isTimed( const std::string& name ) const { return !_countsOnly && _isChosen( name ); }
    static double _scaleOf( std::string_view unit );
    void _report( const std::string& name, const char* unit, Limits limits, const std::vector<Round>& rounds,
                  const std::function<double( double )>& value );
    void _reportCount( const std::string& name, long count, long most );

    std::string _name;
    std::vector<std::string> _chosen;
    bool _countsOnly = false;
    bool _failed = false;
    clockid_t _clock = CLOCK_THREAD_CPUTIME_ID;
};
} // namespace Bench
