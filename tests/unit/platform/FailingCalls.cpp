#include "unit/platform/FailingCalls.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{
using FailingCalls::Call;

struct Order
{
    Call call;
    int error;
    long result;
    int times = 1;
};
std::optional<Order> order_;
std::vector<std::string> addresses_;
bool answers_ = false;
std::string lookedUp_;

// Takes the order, if it is for this call.
bool isOrdered( Call call, long& result )
{
    if( !order_ || order_->call != call ) return false;
    if( order_->error ) errno = order_->error;
    result = order_->result;
    if( --order_->times == 0 ) order_.reset( );
    return true;
}
// The system's own answer unless another was ordered.
template <typename Result, typename... Arguments>
Result answer( Call call, const char* name, Arguments... arguments )
{
    long result = 0;
    if( isOrdered( call, result ) ) return static_cast<Result>( result );
    return reinterpret_cast<Result ( * )( Arguments... )>( dlsym( RTLD_NEXT, name ) )( arguments... );
}
} // namespace

namespace FailingCalls
{
void fail( Call call, int error )
{
    order_ = Order{ call, error, -1 };
}
void tell( Call call, long bytes, int times )
{
    order_ = Order{ call, 0, bytes, times };
}
void answerLookUp( const std::vector<std::string>& addresses )
{
    answers_ = true;
    addresses_ = addresses;
}
std::string lookedUp( )
{
    return lookedUp_;
}
void reset( )
{
    order_.reset( );
    answers_ = false;
    lookedUp_.clear( );
}
} // namespace FailingCalls

extern "C"
{
    int socket( int domain, int type, int protocol ) noexcept
    {
        return answer<int>( Call::SOCKET, "socket", domain, type, protocol );
    }
    int setsockopt( int handle, int level, int option, const void* value, socklen_t size ) noexcept
    {
        return answer<int>( Call::SETSOCKOPT, "setsockopt", handle, level, option, value, size );
    }
    int fcntl( int handle, int command, ... )
    {
        va_list list;
        va_start( list, command );
        const long argument = va_arg( list, long );
        va_end( list );
        long result = 0;
        if( isOrdered( Call::FCNTL, result ) ) return static_cast<int>( result );
        return static_cast<int>( syscall( SYS_fcntl, handle, command, argument ) );
    }
    int bind( int handle, const sockaddr* address, socklen_t size ) noexcept
    {
        return answer<int>( Call::BIND, "bind", handle, address, size );
    }
    int getsockname( int handle, sockaddr* address, socklen_t* size ) noexcept
    {
        return answer<int>( Call::GETSOCKNAME, "getsockname", handle, address, size );
    }
    int connect( int handle, const sockaddr* address, socklen_t size )
    {
        return answer<int>( Call::CONNECT, "connect", handle, address, size );
    }
    ssize_t sendto( int handle, const void* data, size_t length, int flags, const sockaddr* address, socklen_t size )
    {
        return answer<ssize_t>( Call::SENDTO, "sendto", handle, data, length, flags, address, size );
    }
    ssize_t recvfrom( int handle, void* data, size_t length, int flags, sockaddr* address, socklen_t* size )
    {
        return answer<ssize_t>( Call::RECVFROM, "recvfrom", handle, data, length, flags, address, size );
    }
    int sendmmsg( int handle, mmsghdr* messages, unsigned count, int flags )
    {
        return answer<int>( Call::SENDMMSG, "sendmmsg", handle, messages, count, flags );
    }
    int recvmmsg( int handle, mmsghdr* messages, unsigned count, int flags, timespec* wait )
    {
        return answer<int>( Call::RECVMMSG, "recvmmsg", handle, messages, count, flags, wait );
    }
    ssize_t send( int handle, const void* data, size_t length, int flags )
    {
        return answer<ssize_t>( Call::SEND, "send", handle, data, length, flags );
    }
    ssize_t recv( int handle, void* data, size_t length, int flags )
    {
        return answer<ssize_t>( Call::RECV, "recv", handle, data, length, flags );
    }
    int ppoll( pollfd* set, nfds_t count, const timespec* wait, const sigset_t* mask )
    {
        return answer<int>( Call::PPOLL, "ppoll", set, count, wait, mask );
    }
    int getifaddrs( ifaddrs** list ) noexcept
    {
        return answer<int>( Call::GETIFADDRS, "getifaddrs", list );
    }
    int gethostname( char* name, size_t size ) noexcept
    {
        return answer<int>( Call::GETHOSTNAME, "gethostname", name, size );
    }
    // No test asks the machine's resolver: without an answer to give, no name is known.
    int gethostbyname_r( const char* name, hostent* entry, char* room, size_t size, hostent** found, int* error )
    {
        lookedUp_ = name;
        *found = nullptr;
        *error = HOST_NOT_FOUND;
        const size_t count = answers_ ? addresses_.size( ) : 0;
        const size_t pointers = ( count + 1 ) * sizeof( char* );
        if( !count || pointers + count * sizeof( in_addr ) > size ) return 0;
        char** list = reinterpret_cast<char**>( room );
        for( size_t i = 0; i < count; ++i )
        {
            list[i] = room + pointers + i * sizeof( in_addr );
            const in_addr address{ inet_addr( addresses_[i].c_str( ) ) };
            std::memcpy( list[i], &address, sizeof( address ) );
        }
        list[count] = nullptr;
        *entry = hostent{ const_cast<char*>( name ), list + count, AF_INET, sizeof( in_addr ), list };
        *found = entry;
        *error = 0;
        return 0;
    }
}
