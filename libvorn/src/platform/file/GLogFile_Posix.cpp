#include "platform/GLogFile.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr mode_t LOG_MODE = 0644;
std::atomic<int> descriptor_ = -1;
std::atomic<int> writers_ = 0;    // Lines on their way to the file.
std::atomic<pid_t> sealedBy_ = 0; // The thread that writes the end; 0 while all may write.

void pauseShortly( )
{
    constexpr timespec PAUSE = { 0, 5000000 };
    nanosleep( &PAUSE, nullptr );
}
// A thread that failed in the midst of a line never ends it.
void waitForWriters( )
{
    constexpr int TRIES = 20;
    for( int i = 0; i < TRIES && writers_ > 0; ++i ) pauseShortly( );
}

void writeTo( int descriptor, const char* bytes, size_t length )
{
    ssize_t written;
    do written = write( descriptor, bytes, length );
    while( written < 0 && errno == EINTR );
}
// While an instance holds the lock of the file at that path, no other moves it: whoever does must hold it too.
bool isStillAt( int descriptor, const GString& path )
{
    struct stat own = { };
    struct stat there = { };
    return !fstat( descriptor, &own ) && !stat( path.c_str( ), &there ) && own.st_dev == there.st_dev &&
           own.st_ino == there.st_ino;
}
// Another instance may hold the lock for the moment that it needs to move a file out of its way; nobody holds it for long.
bool lockSoon( int descriptor )
{
    constexpr int TRIES = 100;
    for( int i = 0; i < TRIES; ++i )
    {
        if( !flock( descriptor, LOCK_EX | LOCK_NB ) ) return true;
        pauseShortly( );
    }
    return false;
}
int openLeftBehind( const GString& path )
{
    // Some file systems lock only what is open for writing; a log that may only be read can be moved all the same.
    const int descriptor = open( path.c_str( ), O_RDWR | O_CLOEXEC | O_NONBLOCK );
    return descriptor < 0 && errno == EACCES ? open( path.c_str( ), O_RDONLY | O_CLOEXEC | O_NONBLOCK ) : descriptor;
}
} // namespace

bool GLogFileMoveAside( const GString& fromPath, const GString& toPath )
{
    const int descriptor = openLeftBehind( fromPath );
    if( descriptor < 0 ) return errno == ENOENT;
    const bool isFree = !flock( descriptor, LOCK_EX | LOCK_NB );
    // Another instance may have moved it since; what lies there then is that instance's own.
    const bool moved = isFree && isStillAt( descriptor, fromPath ) && !rename( fromPath.c_str( ), toPath.c_str( ) );
    close( descriptor );
    return moved;
}

bool GLogFileOpen( const GString& path )
{
    const int descriptor = open( path.c_str( ), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, LOG_MODE );
    if( descriptor < 0 ) return false;
    if( !lockSoon( descriptor ) || !isStillAt( descriptor, path ) )
    {
        close( descriptor );
        return false;
    }
    sealedBy_ = 0;
    descriptor_ = descriptor;
    return true;
}
bool GLogFileExists( const char* path )
{
    return !access( path, F_OK );
}
bool GLogFileIsOpen( )
{
    return descriptor_ >= 0;
}
void GLogFileWrite( const char* bytes, size_t length )
{
    // The count first: whoever seals or closes the file after it waits for this line.
    ++writers_;
    const pid_t owner = sealedBy_;
    const int descriptor = descriptor_;
    if( descriptor >= 0 && ( !owner || owner == gettid( ) ) ) writeTo( descriptor, bytes, length );
    --writers_;
}
void GLogFileSeal( )
{
    sealedBy_ = gettid( );
    waitForWriters( );
}
void GLogFileEcho( const char* bytes, size_t length )
{
    writeTo( STDOUT_FILENO, bytes, length );
}
void GLogFileClose( const char* fromPath, const char* toPath )
{
    const int descriptor = descriptor_.exchange( -1 );
    if( descriptor < 0 ) return;
    waitForWriters( );
    // Renamed while the lock is held, so that no other instance takes it for its own in between.
    [[maybe_unused]] const int moved = rename( fromPath, toPath );
    close( descriptor );
}
