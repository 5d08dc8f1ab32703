// Opening a program, document or address. What the system can run is started directly; the rest goes to the desktop's opener.
#include "platform/GSystem.h"

#include "base/GPortable.h"
#include "base/GUtil.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace
{
constexpr int SUCCESS = 33; // The shell's result codes above 32 are successes.

// The shell's code, its text, and the errors of this system that come closest.
struct Reason
{
    int code;
    const char16_t* text;
    std::array<int, 4> errors;
};
constexpr Reason REASONS[] = {
    { 0, u"The operating system is out of memory or resources.", { EAGAIN, EMFILE, ENFILE } },
    { 2, u"The specified file was not found.", { ENOENT } },
    { 3, u"The specified path was not found.", { ENOTDIR, ENAMETOOLONG, ELOOP } },
    { 5, u"The operating system denied access to the specified file.", { EACCES, EPERM } },
    { 8, u"There was not enough memory to complete the operation.", { ENOMEM, E2BIG } },
    { 11, u"The .exe file is invalid (non-Microsoft Win32 .exe or error in .exe image).", { ENOEXEC } },
    { 26, u"A sharing violation occurred.", { ETXTBSY } },
    { 27, u"The file name association is incomplete or invalid.", { } },
    { 28, u"The DDE transaction could not be completed because the request timed out.", { } },
    { 29, u"The DDE transaction failed.", { } },
    { 30,
      u"The Dynamic Data Exchange (DDE) transaction could not be completed because other DDE transactions were "
      u"being processed.",
      { } },
    { 31,
      u"There is no application associated with the given file name extension. This error will also be errorMsg = "
      u"ed if you attempt to print a file that is not printable.",
      { } },
    { 32, u"The specified dynamic-link library (DLL) was not found.", { ELIBACC, ELIBBAD } },
};
constexpr const char16_t* UNKNOWN_REASON = u"An unknown error occured.";
constexpr int UNKNOWN_CODE = 1;

const char16_t* reasonOf( int code )
{
    const auto* const found = std::ranges::find( REASONS, code, &Reason::code );
    return found == std::end( REASONS ) ? UNKNOWN_REASON : found->text;
}
int codeOf( int error )
{
    if( !error ) return SUCCESS;
    const auto* const found =
        std::ranges::find_if( REASONS, [&]( const Reason& reason )
                              { return std::ranges::find( reason.errors, error ) != reason.errors.end( ); } );
    return found == std::end( REASONS ) ? UNKNOWN_CODE : found->code;
}

// Children are taken off the process table at the next start, so that none is left for long and nobody waits.
std::mutex childMutex_;
std::vector<pid_t> children_;

void reapChildren( )
{
    std::erase_if( children_, []( pid_t child ) { return waitpid( child, nullptr, WNOHANG ) != 0; } );
}

int spawn( const GStringVector& words, bool searchPath )
{
    std::vector<GString> texts;
    for( const GWString& word : words ) texts.push_back( GWideToUTF8( word ) );
    std::vector<char*> arguments;
    arguments.reserve( texts.size( ) + 1 );
    for( GString& text : texts ) arguments.push_back( text.data( ) );
    arguments.push_back( nullptr );
    posix_spawnattr_t attributes;
    posix_spawnattr_init( &attributes );
    sigset_t none;
    sigemptyset( &none );
    posix_spawnattr_setsigmask( &attributes, &none );
    sigset_t defaults;
    sigemptyset( &defaults );
    for( const int signal : { SIGABRT, SIGFPE, SIGILL, SIGSEGV, SIGBUS, SIGTERM, SIGPIPE } )
        sigaddset( &defaults, signal );
    posix_spawnattr_setsigdefault( &attributes, &defaults );
    posix_spawnattr_setflags( &attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID );
    const std::scoped_lock lock( childMutex_ );
    reapChildren( );
    pid_t child = 0;
    const int error = ( searchPath ? posix_spawnp : posix_spawn )( &child, arguments[0], nullptr, &attributes,
                                                                   arguments.data( ), environ );
    posix_spawnattr_destroy( &attributes );
    if( !error ) children_.push_back( child );
    return error;
}

bool isAddress( const GWString& path )
{
    const size_t colon = path.find( u"://" );
    return colon != GWString::npos && path.find( u'/' ) > colon;
}

int execute( const GWString& path, const GWString& args )
{
    GStringVector words = { path };
    const GStringList rest = GSplitList( args, u" " );
    words.insert( words.end( ), rest.begin( ), rest.end( ) );
    const GString native = GWideToUTF8( path );
    struct stat status = { };
    if( !isAddress( path ) && stat( native.c_str( ), &status ) ) return codeOf( errno );
    const bool isFile = !isAddress( path ) && S_ISREG( status.st_mode );
    // A program that was just downloaded has no permission to run yet.
    if( isFile && path.ends_with( u".exe" ) && access( native.c_str( ), X_OK ) )
        static_cast<void>( chmod( native.c_str( ), status.st_mode | S_IXUSR ) );
    if( isFile && ( path.ends_with( u".exe" ) || !access( native.c_str( ), X_OK ) ) )
        return codeOf( spawn( words, false ) );
    const GWString document = isAddress( path ) || path[0] == u'/' ? path : u"./" + path;
    return spawn( { u"xdg-open", document }, true ) ? 31 : SUCCESS;
}
} // namespace

bool GSystemExecute( const GWString& path, const GWString& args, GWString& reason )
{
    if( path.empty( ) ) return false;
    const int code = execute( path, args );
    if( code >= SUCCESS ) return true;
    reason = reasonOf( code );
    return false;
}
