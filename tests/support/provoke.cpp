// Preloaded into the real program by the crash tests: makes a thread fail in a call that it makes anyway, when asked to.
// The main thread is caught in poll, a service in clock_nanosleep. Requests are files in the working directory:
//   provoke.main, provoke.service   hold the name of a misdeed of the table below; the thread that takes the request removes the file
//   provoke.late                    is what the misdeed "late" waits for
//   provoke.threads                 makes the start of every thread of the program's own fail, as on a system that has no more
#include <cerrno>
#include <cfenv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace
{
void segv( )
{
    *reinterpret_cast<volatile int*>( 16 ) = 1;
}
int descend( volatile char* above )
{
    volatile char room[4096];
    room[0] = above ? above[0] : '\0';
    return descend( room ) + room[0];
}
void overflow( )
{
    descend( nullptr );
}
void abortHere( )
{
    abort( );
}
void divideFloat( )
{
    feenableexcept( FE_DIVBYZERO );
    volatile double zero = 0;
    volatile double infinite = 1 / zero;
    static_cast<void>( infinite );
}
void divideInteger( )
{
    volatile int zero = 0;
    volatile int nothing = 1 % zero;
    static_cast<void>( nothing );
}
void throwError( )
{
    throw std::runtime_error( "provoked" );
}
// Writes over the head of a freed block. The library finds it while it holds its own lock, and aborts.
void breakHeap( )
{
    constexpr size_t ROOM = 2008; // Of a block that is not cached by its thread.
    constexpr uintptr_t NEXT = ROOM + sizeof( size_t );
    auto block = reinterpret_cast<uintptr_t>( malloc( ROOM ) );
    auto behind = reinterpret_cast<uintptr_t>( malloc( ROOM ) );
    while( behind != block + NEXT )
    {
        block = behind;
        behind = reinterpret_cast<uintptr_t>( malloc( ROOM ) );
    }
    free( reinterpret_cast<void*>( behind ) );
    *reinterpret_cast<volatile size_t*>( block + ROOM ) = ~size_t( 0 ) / 3;
    while( malloc( 2 * ROOM ) )
    {
    }
}

// A thread that fails only when the test says so, whatever the others have come to meanwhile.
void failLate( )
{
    const timespec pause = { 0, 1000000 };
    while( access( "provoke.late", F_OK ) ) nanosleep( &pause, nullptr );
    segv( );
}

struct Misdeed
{
    std::string_view name;
    void ( *commit )( );
};
constexpr Misdeed MISDEEDS[] = {
    { "segv", segv },         { "overflow", overflow },     { "abort", abortHere },
    { "float", divideFloat }, { "integer", divideInteger }, { "throw", throwError },
    { "heap", breakHeap },    { "late", failLate },
};

// Each request is taken by the one thread that succeeds in removing its file.
void obey( const char* path )
{
    if( access( path, R_OK ) ) return;
    char name[32] = { };
    FILE* const file = fopen( path, "re" );
    if( !file ) return;
    const bool isRead = fgets( name, sizeof( name ), file );
    fclose( file );
    if( !isRead || unlink( path ) ) return;
    name[strcspn( name, "\n" )] = '\0';
    for( const Misdeed& misdeed : MISDEEDS )
        if( misdeed.name == name ) misdeed.commit( );
}

bool isMain( )
{
    return gettid( ) == getpid( );
}

// The program's own threads, and not those of the toolkit.
bool isProgram( void* code )
{
    Dl_info info = { };
    return dladdr( code, &info ) && info.dli_fname && std::string_view( info.dli_fname ).ends_with( "/velmora" );
}

template <typename Function>
Function* next( Function*, const char* name )
{
    return reinterpret_cast<Function*>( dlsym( RTLD_NEXT, name ) );
}
} // namespace

extern "C" int poll( pollfd* sources, nfds_t count, int timeout )
{
    static const auto real = next( poll, "poll" );
    if( isMain( ) ) obey( "provoke.main" );
    return real( sources, count, timeout );
}

extern "C" int clock_nanosleep( clockid_t clock, int flags, const timespec* wanted, timespec* left )
{
    static const auto real = next( clock_nanosleep, "clock_nanosleep" );
    if( !isMain( ) ) obey( "provoke.service" );
    return real( clock, flags, wanted, left );
}

extern "C" int pthread_create( pthread_t* thread, const pthread_attr_t* attributes, void* ( *run )(void*),
                               void* argument ) noexcept
{
    static const auto real = next( pthread_create, "pthread_create" );
    const bool fails = !access( "provoke.threads", F_OK ) && isProgram( reinterpret_cast<void*>( run ) );
    return fails ? EAGAIN : real( thread, attributes, run, argument );
}
