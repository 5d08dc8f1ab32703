#include "platform/GCrash.h"

#include <csignal>
#include <sys/mman.h>
#include <unistd.h>

namespace
{
// Room for the handler, which composes its lines on the stack.
constexpr size_t STACK_SIZE = 256 * 1024;
// Below the stack, so that a handler that needs more fails instead of writing elsewhere.
constexpr size_t GUARD_SIZE = 64 * 1024;
thread_local void* stack_ = nullptr;
} // namespace

// Pages of their own: a broken heap must not reach them.
void GCrashOpenThread( )
{
    if( stack_ ) return;
    void* const pages =
        mmap( nullptr, GUARD_SIZE + STACK_SIZE, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0 );
    if( pages == MAP_FAILED ) return;
    char* const stack = static_cast<char*>( pages ) + GUARD_SIZE;
    const stack_t alternate = { stack, 0, STACK_SIZE };
    if( mprotect( stack, STACK_SIZE, PROT_READ | PROT_WRITE ) || sigaltstack( &alternate, nullptr ) )
        munmap( pages, GUARD_SIZE + STACK_SIZE );
    else
        stack_ = pages;
}
void GCrashCloseThread( )
{
    if( !stack_ ) return;
    const stack_t none = { nullptr, SS_DISABLE, 0 };
    sigaltstack( &none, nullptr );
    munmap( stack_, GUARD_SIZE + STACK_SIZE );
    stack_ = nullptr;
}
void GCrashExit( int status )
{
    _exit( status );
}
