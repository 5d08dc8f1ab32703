#include "CountAllocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{
std::atomic<int64_t> allocations_ = 0;
} // namespace

int64_t CountAllocations( )
{
    return allocations_;
}

void* operator new( size_t size )
{
    ++allocations_;
    if( void* memory = std::malloc( size ? size : 1 ) ) return memory;
    throw std::bad_alloc( );
}
void operator delete( void* memory ) noexcept
{
    std::free( memory );
}
void operator delete( void* memory, size_t ) noexcept
{
    std::free( memory );
}
