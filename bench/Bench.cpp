#include "Bench.h"

#include <cerrno>
#include <cstdio>

namespace
{
thread_local long allocations_ = 0;

// The quantile of sorted values, between neighbours in proportion.
double quantile( const std::vector<double>& sorted, double part )
{
    const double place = part * static_cast<double>( sorted.size( ) - 1 );
    const size_t below = static_cast<size_t>( place );
    const size_t above = std::min( below + 1, sorted.size( ) - 1 );
    return sorted[below] + ( sorted[above] - sorted[below] ) * ( place - static_cast<double>( below ) );
}

std::vector<double> sorted( std::vector<double> values )
{
    std::sort( values.begin( ), values.end( ) );
    return values;
}
} // namespace

// The C library's own allocator under names that may be interposed.
extern "C"
{
    void* __libc_malloc( size_t size );
    void* __libc_calloc( size_t count, size_t size );
    void* __libc_realloc( void* memory, size_t size );
    void* __libc_memalign( size_t alignment, size_t size );

    void* malloc( size_t size )
    {
        ++allocations_;
        return __libc_malloc( size );
    }
    void* calloc( size_t count, size_t size )
    {
        ++allocations_;
        return __libc_calloc( count, size );
    }
    void* realloc( void* memory, size_t size )
    {
        ++allocations_;
        return __libc_realloc( memory, size );
    }
    void* memalign( size_t alignment, size_t size )
    {
        ++allocations_;
        return __libc_memalign( alignment, size );
    }
    void* aligned_alloc( size_t alignment, size_t size )
    {
        return memalign( alignment, size );
    }
    int posix_memalign( void** memory, size_t alignment, size_t size )
    {
        *memory = memalign( alignment, size );
        return *memory ? 0 : ENOMEM;
    }
}

namespace Bench
{
long allocations( )
{
    return allocations_;
}

Suite::Suite( std::string name, int argc, char** argv ) : _name( std::move( name ) )
{
    for( int i = 1; i < argc; i++ )
    {
        if( std::string_view( argv[i] ) == "--counts" )
            _countsOnly = true;
        else
            _chosen.emplace_back( argv[i] );
    }
}

bool Suite::_isChosen( const std::string& name ) const
{
    return _chosen.empty( ) ||
           std::any_of( _chosen.begin( ), _chosen.end( ),
                        [&name]( const std::string& part ) { return name.find( part ) != std::string::npos; } );
}

double Suite::_scaleOf( std::string_view unit )
{
    if( unit == "ms" ) return 1e3;
    if( unit == "us" ) return 1e6;
    return unit == "ns" ? 1e9 : 1;
}

void Suite::_report( const std::string& name, const char* unit, Limits limits, const std::vector<Round>& rounds,
                     const std::function<double( double )>& value )
{
    std::vector<double> project, anchor, ratio;
    for( const Round& round : rounds )
    {
        project.push_back( value( round.project ) );
        anchor.push_back( value( round.anchor ) );
        ratio.push_back( project.back( ) / anchor.back( ) );
    }
    ratio = sorted( ratio );
    const double median = quantile( ratio, 0.5 );
    std::printf( "{\"bench\":\"%s\",\"case\":\"%s\",\"project\":%.4g,\"anchor\":%.4g,\"ratio\":%.3f,\"n\":%zu,"
                 "\"spread_pct\":%.1f,\"unit\":\"%s\",\"must\":%g,\"goal\":%g}\n",
                 _name.c_str( ), name.c_str( ), quantile( sorted( project ), 0.5 ), quantile( sorted( anchor ), 0.5 ),
                 median, rounds.size( ), ( quantile( ratio, 0.75 ) - quantile( ratio, 0.25 ) ) / median * 100, unit,
                 limits.must, limits.goal );
    std::fflush( stdout );
}

void Suite::size( const std::string& name, const char* unit, Limits limits, double project, double anchor )
{
    if( !_isChosen( name ) ) return;
    const double ratio = project / anchor;
    std::printf( "{\"bench\":\"%s\",\"case\":\"%s\",\"project\":%g,\"anchor\":%g,\"ratio\":%.3f,\"n\":1,"
                 "\"spread_pct\":0,\"unit\":\"%s\",\"must\":%g,\"goal\":%g}\n",
                 _name.c_str( ), name.c_str( ), project, anchor, ratio, unit, limits.must, limits.goal );
    std::fflush( stdout );
    if( ratio > limits.must ) _failed = true;
}

void Suite::_reportCount( const std::string& name, long count, long most )
{
    const double ratio = most > 0 ? static_cast<double>( count ) / static_cast<double>( most ) : count > 0 ? 2 : 1;
    std::printf( "{\"bench\":\"%s\",\"case\":\"%s\",\"project\":%ld,\"anchor\":%ld,\"ratio\":%.3f,\"n\":1,"
                 "\"spread_pct\":0,\"unit\":\"allocations\",\"must\":1,\"goal\":1}\n",
                 _name.c_str( ), name.c_str( ), count, most, ratio );
    std::fflush( stdout );
    if( count > most ) _failed = true;
}
} // namespace Bench
