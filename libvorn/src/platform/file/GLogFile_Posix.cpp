#include "platform/GLogFile.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace
{
constexpr mode_t LOG_MODE = 0644;
std::atomic<int> descriptor_ = -1;

void writeTo( int descriptor, const char* bytes, size_t length )
{
    ssize_t written;
    do written = write( descriptor, bytes, length );
    while( written < 0 && errno == EINTR );
}
} // namespace

bool GLogFileIsHeld( const GString& path )
{
    const int probe = open( path.c_str( ), O_RDONLY | O_CLOEXEC | O_NONBLOCK );
    if( probe < 0 ) return errno != ENOENT;
    const bool held = flock( probe, LOCK_EX | LOCK_NB ) != 0;
    close( probe );
    return held;
}

bool GLogFileOpen( const GString& path )
{
    const int descriptor = open( path.c_str( ), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, LOG_MODE );
    if( descriptor < 0 ) return false;
    if( flock( descriptor, LOCK_EX | LOCK_NB ) )
    {
        close( descriptor );
        return false;
    }
    descriptor_ = descriptor;
    return true;
}
bool GLogFileIsOpen( )
{
    return descriptor_ >= 0;
}
void GLogFileWrite( const char* bytes, size_t length )
{
    const int descriptor = descriptor_;
    if( descriptor >= 0 ) writeTo( descriptor, bytes, length );
}
void GLogFileEcho( const char* bytes, size_t length )
{
    writeTo( STDOUT_FILENO, bytes, length );
}
void GLogFileClose( const char* fromPath, const char* toPath )
{
    const int descriptor = descriptor_.exchange( -1 );
    if( descriptor < 0 ) return;
    // Renamed while the lock is held, so that no other instance takes it for its own in between.
    [[maybe_unused]] const int moved = rename( fromPath, toPath );
    close( descriptor );
}
