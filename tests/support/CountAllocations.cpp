#include "support/CountAllocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{
std::atomic<long> allocations_ = 0;
} // namespace

long allocationCount( )
{
    return allocations_;
}

// The thread sanitizer must see by whom memory is freed: what a library does inside itself is not ours to judge.
#ifndef __SANITIZE_THREAD__
void* operator new( size_t size )
{
    ++allocations_;
    if( void* const memory = std::malloc( size ? size : 1 ) ) return memory;
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
#endif
