#include "platform/GFileAside.h"

#include "base/GPortable.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

struct GFileAsideRecord
{
    GString path;
    GString aside;       // Empty when the path itself is written.
    int descriptor = -1; // Keeps the lock while the stream is closed already.
    FILE* stream = nullptr;
};

namespace
{
constexpr mode_t NEW_FILE_MODE = 0600;
constexpr int OPEN_TRIES = 10;

// The path behind symbolic links, so that a link stays one; the path as it is when nothing is there.
GString resolve( const GString& path )
{
    const std::unique_ptr<char, decltype( &free )> real( realpath( path.c_str( ), nullptr ), free );
    return real ? GString( real.get( ) ) : path;
}

bool isAt( int descriptor, const GString& path )
{
    struct stat mine = { };
    struct stat there = { };
    return !fstat( descriptor, &mine ) && !lstat( path.c_str( ), &there ) && mine.st_ino == there.st_ino &&
           mine.st_dev == there.st_dev;
}

// An empty plain file under that name and under lock, also when an earlier writer has died and left one; -1 on failure.
int openLocked( const GString& aside )
{
    for( int i = 0; i < OPEN_TRIES; ++i )
    {
        const int descriptor =
            open( aside.c_str( ), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, NEW_FILE_MODE );
        if( descriptor < 0 ) return -1;
        const bool held = flock( descriptor, LOCK_EX | LOCK_NB ) && errno == EWOULDBLOCK;
        struct stat status = { };
        // Another writer may have moved the file to its place between the two calls: then it is not ours to empty.
        if( !held && isAt( descriptor, aside ) && !fstat( descriptor, &status ) && S_ISREG( status.st_mode ) &&
            !ftruncate( descriptor, 0 ) )
            return descriptor;
        close( descriptor );
        if( held ) return -1;
    }
    return -1;
}

// The name of a file lasts only when its directory is on the disk, too.
void syncDirectory( const GString& path )
{
    const size_t slash = path.rfind( '/' );
    const GString directory = slash == GString::npos ? "." : path.substr( 0, slash + 1 );
    const int descriptor = open( directory.c_str( ), O_RDONLY | O_DIRECTORY | O_CLOEXEC );
    if( descriptor < 0 ) return;
    fsync( descriptor );
    close( descriptor );
}

bool openStream( GFileAsideRecord& file )
{
    const int writable = fcntl( file.descriptor, F_DUPFD_CLOEXEC, 0 );
    if( writable < 0 ) return false;
    file.stream = fdopen( writable, "w" );
    if( !file.stream )
    {
        close( writable );
        return false;
    }
    setvbuf( file.stream, nullptr, _IONBF, 0 );
    return true;
}

void discard( const GFileAsideRecord& file )
{
    if( !file.aside.empty( ) ) unlink( file.aside.c_str( ) );
    close( file.descriptor );
}
} // namespace

GFileAside GFileAsideOpen( const GString& path )
{
    GPRECONDITION( !path.empty( ) );
    auto file = std::make_unique<GFileAsideRecord>( );
    file->path = resolve( path );
    struct stat old = { };
    const bool isThere = !stat( file->path.c_str( ), &old );
    const bool inPlace = isThere && !S_ISREG( old.st_mode );
    if( !inPlace ) file->aside = file->path + ".new";
    file->descriptor = inPlace ? open( file->path.c_str( ), O_WRONLY | O_CLOEXEC ) : openLocked( file->aside );
    if( file->descriptor < 0 ) return nullptr;
    const bool moded = inPlace || !fchmod( file->descriptor, isThere ? old.st_mode & 0777 : NEW_FILE_MODE );
    if( moded && openStream( *file ) ) return file.release( );
    discard( *file );
    return nullptr;
}

FILE* GFileAsideGetStream( GFileAside file )
{
    GVALIDPTR( file );
    return file->stream;
}

bool GFileAsideSync( GFileAside file )
{
    GVALIDPTR( file );
    return file->aside.empty( ) || !fsync( file->descriptor );
}

bool GFileAsideClose( GFileAside file, bool whole )
{
    GVALIDPTR( file );
    const std::unique_ptr<GFileAsideRecord> owner( file );
    const bool moved = whole && ( file->aside.empty( ) || !rename( file->aside.c_str( ), file->path.c_str( ) ) );
    if( !moved )
    {
        discard( *file );
        return false;
    }
    close( file->descriptor );
    if( !file->aside.empty( ) ) syncDirectory( file->path );
    return true;
}
