#include "platform/screen/GScreenMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
// Only a socket of this machine carries descriptors; on another the request would end the connection.
bool isLocal( xcb_connection_t* connection )
{
    sockaddr_storage address = { };
    socklen_t length = sizeof( address );
    return getsockname( xcb_get_file_descriptor( connection ), reinterpret_cast<sockaddr*>( &address ), &length ) ==
               0 &&
           address.ss_family == AF_UNIX;
}

bool canShare( GScreenConnection& connection )
{
    if( !isLocal( connection.get( ) ) || !connection.has( xcb_shm_id ) ) return false;
    const GScreenReply<xcb_shm_query_version_reply_t> version(
        xcb_shm_query_version_reply( connection.get( ), xcb_shm_query_version( connection.get( ) ), nullptr ) );
    // Descriptors came with 1.2.
    return version && ( version->major_version > 1 || ( version->major_version == 1 && version->minor_version >= 2 ) );
}

// -1 when there is none. Sealed, so that the server can't take the memory away under our reads.
int makeFile( size_t size )
{
    const int file = memfd_create( "velmora-screen", MFD_CLOEXEC | MFD_ALLOW_SEALING );
    if( file < 0 ) return -1;
    if( ftruncate( file, static_cast<off_t>( size ) ) == 0 &&
        fcntl( file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_SEAL ) == 0 )
        return file;
    close( file );
    return -1;
}
} // namespace

char* GScreenMemory::allocate( GScreenConnection& connection, size_t size )
{
    release( );
    const int file = canShare( connection ) ? makeFile( size ) : -1;
    void* bytes = file < 0 ? mmap( nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0 )
                           : mmap( nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0 );
    if( bytes != MAP_FAILED )
    {
        _connection = &connection;
        _generation = connection.getGeneration( );
        _bytes = static_cast<char*>( bytes );
        _size = size;
        if( file >= 0 ) _share( connection, dup( file ) );
    }
    if( file >= 0 ) close( file );
    return _bytes;
}

void GScreenMemory::release( )
{
    if( !_bytes ) return;
    if( _segment && _connection->isAlive( ) && _connection->getGeneration( ) == _generation )
    {
        xcb_shm_detach( _connection->get( ), _segment );
        xcb_flush( _connection->get( ) );
    }
    munmap( _bytes, _size );
    _bytes = nullptr;
    _segment = 0;
}

// The library closes the descriptor once it is sent.
void GScreenMemory::_share( GScreenConnection& connection, int file )
{
    if( file < 0 ) return;
    const xcb_shm_seg_t segment = xcb_generate_id( connection.get( ) );
    const xcb_void_cookie_t cookie = xcb_shm_attach_fd_checked( connection.get( ), segment, file, 0 );
    const GScreenReply<xcb_generic_error_t> error( xcb_request_check( connection.get( ), cookie ) );
    if( !error && connection.isAlive( ) ) _segment = segment;
}
