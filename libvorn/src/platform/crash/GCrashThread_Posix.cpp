#include "platform/GCrash.h"

#include <csignal>
#include <cstdlib>
#include <unistd.h>

namespace
{
// Room for the handler, which composes its lines on the stack.
constexpr size_t STACK_SIZE = 256 * 1024;
thread_local void* stack_ = nullptr;
} // namespace

void GCrashOpenThread( )
{
    if( stack_ ) return;
    stack_ = malloc( STACK_SIZE );
    if( !stack_ ) return;
    const stack_t alternate = { stack_, 0, STACK_SIZE };
    sigaltstack( &alternate, nullptr );
}
void GCrashCloseThread( )
{
    if( !stack_ ) return;
    const stack_t none = { nullptr, SS_DISABLE, 0 };
    sigaltstack( &none, nullptr );
    free( stack_ );
    stack_ = nullptr;
}
void GCrashExit( int status )
{
    _exit( status );
}
