#include "base/GRandom.h"

#include <mutex>
#include <random>

namespace
{
std::mutex mutex_;
std::mt19937& source( )
{
    static std::mt19937 generator( std::random_device{ }( ) );
    return generator;
}
} // namespace

int GRandom( )
{
    const std::scoped_lock lock( mutex_ );
    return static_cast<int>( source( )( ) >> 17 );
}
void GRandomSeed( uint32_t seed )
{
    const std::scoped_lock lock( mutex_ );
    source( ).seed( seed );
}
