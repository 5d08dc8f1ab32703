#include "platform/GFileMap.h"

#include "base/GPortable.h"
#include "base/GUtil.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
// Views of a read-only file up to this size are copies: a file that shrinks under a mapping would end the program.
constexpr int64_t MAX_COPY = 16 << 20;
constexpr mode_t FILE_MODE = 0644;

struct View
{
    void* start;
    size_t length;
    bool mapped;
};
} // namespace

struct GFileMapRecord
{
    int descriptor;
    bool write;
    std::mutex mutex;
    std::map<char*, View> views;
};

namespace
{
// Space is allocated at once, since a full disk found later would be a fault in the middle of a write.
int64_t allocate( int descriptor, int64_t size )
{
    if( ftruncate( descriptor, 0 ) ) return 0;
    const int error = posix_fallocate( descriptor, 0, size );
    struct stat status = { };
    if( fstat( descriptor, &status ) ) return 0;
    return error && status.st_size >= size ? 0 : static_cast<int64_t>( status.st_size );
}

char* copyView( GFileMap fileMap, int64_t offset, size_t length )
{
    auto* const copy = static_cast<char*>( malloc( length ? length : 1 ) );
    size_t got = 0;
    while( copy && got < length )
    {
        const ssize_t step =
            pread( fileMap->descriptor, copy + got, length - got, offset + static_cast<int64_t>( got ) );
        if( step < 0 && errno == EINTR ) continue;
        if( step <= 0 ) break;
        got += static_cast<size_t>( step );
    }
    if( copy && got == length )
    {
        fileMap->views[copy] = { copy, length, false };
        return copy;
    }
    free( copy );
    return nullptr;
}

char* mapView( GFileMap fileMap, int64_t offset, size_t length )
{
    const int64_t start = offset - offset % sysconf( _SC_PAGESIZE );
    const size_t whole = length + static_cast<size_t>( offset - start );
    const int protection = fileMap->write ? PROT_READ | PROT_WRITE : PROT_READ;
    void* const trueView = mmap( nullptr, whole ? whole : 1, protection, MAP_SHARED, fileMap->descriptor, start );
    if( trueView == MAP_FAILED ) return nullptr;
    char* const lock = static_cast<char*>( trueView ) + ( offset - start );
    if( fileMap->views.contains( lock ) )
    {
        munmap( trueView, whole ? whole : 1 );
        return nullptr;
    }
    fileMap->views[lock] = { trueView, whole ? whole : 1, true };
    return lock;
}

bool UnmapViewOfFile( const View& view )
{
    if( view.mapped ) return !munmap( view.start, view.length );
    free( view.start );
    return true;
}
} // namespace

GFileMap GFileMapCreate( const GWString& path, int64_t size )
{
    GPRECONDITION( !path.empty( ) );
    GPRECONDITION( size > 0 );
    const GString native = GWideToUTF8( path );
    const int descriptor = open( native.c_str( ), O_RDWR | O_CREAT | O_CLOEXEC, FILE_MODE );
    struct stat status = { };
    const bool isPlain = descriptor >= 0 && !fstat( descriptor, &status ) && S_ISREG( status.st_mode );
    if( !isPlain || flock( descriptor, LOCK_EX | LOCK_NB ) )
    {
        GLOG( u"WARNING Unable to create file mapping for '", path, u"', closing." );
        if( descriptor >= 0 ) close( descriptor );
        return nullptr;
    }
    const int64_t got = allocate( descriptor, size );
    if( got != size )
    {
        GLOG( u"WARNING Unable to allocate", u" ", size, u" bytes, only got ", got, u" bytes, closing." );
        close( descriptor );
        unlink( native.c_str( ) );
        return nullptr;
    }
    return new GFileMapRecord{ descriptor, true, { }, {} };
}

GFileMap GFileMapOpen( const GWString& path, bool write )
{
    const int descriptor = open( GWideToUTF8( path ).c_str( ), ( write ? O_RDWR : O_RDONLY ) | O_CLOEXEC | O_NONBLOCK );
    struct stat status = { };
    if( descriptor >= 0 && !fstat( descriptor, &status ) && S_ISREG( status.st_mode ) )
        return new GFileMapRecord{ descriptor, write, { }, {} };
    GLOG( u"WARNING Unable to open file mapping for '", path, u"', write=", write ? u"TRUE" : u"FALSE", u", closing." );
    if( descriptor >= 0 ) close( descriptor );
    return nullptr;
}

char* GFileMapLock( GFileMap fileMap, int64_t offset, int64_t length )
{
    GVALIDPTR( fileMap );
    if( length < 0 || length > INT32_MAX || offset < 0 || offset > INT64_MAX - length ) return nullptr;
    if( offset + length > GFileMapGetSize( fileMap ) ) return nullptr;
    const std::scoped_lock lock( fileMap->mutex );
    if( !fileMap->write && length <= MAX_COPY ) return copyView( fileMap, offset, static_cast<size_t>( length ) );
    return mapView( fileMap, offset, static_cast<size_t>( length ) );
}

void GFileMapUnlock( GFileMap fileMap, char* lock )
{
    GPRECONDITION( fileMap && lock );
    const std::scoped_lock scope( fileMap->mutex );
    const auto found = fileMap->views.find( lock );
    if( !GVERIFY_TEXT( found != fileMap->views.end( ), "GMAPCONTAINS( fileMap->lockMap, lock )" ) ) return;
    const View trueView = found->second;
    fileMap->views.erase( found );
    GVERIFY_TEXT( UnmapViewOfFile( trueView ), "UnmapViewOfFile( trueView)" );
}

int64_t GFileMapGetSize( GFileMap fileMap )
{
    GVALIDPTR( fileMap );
    struct stat status = { };
    return fstat( fileMap->descriptor, &status ) ? 0 : static_cast<int64_t>( status.st_size );
}

void GFileMapClose( GFileMap fileMap )
{
    GVALIDPTR( fileMap );
    for( const auto& [lock, view] : fileMap->views )
        GVERIFY_TEXT( UnmapViewOfFile( view ), "UnmapViewOfFile( trueView)" );
    GVERIFY( !close( fileMap->descriptor ) );
    delete fileMap;
}
