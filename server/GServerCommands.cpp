#include "server/GServerCommands.h"

#include "base/GUtil.h"
#include "platform/GTime.h"
#include "server/GServerCheck.h"
#include "server/core/GEndpoint.h"
#include "server/core/GPassword.h"
#include "server/core/GServerMessage.h"
#include "server/logon/GLogonService.h"

#include <ctime>
#include <filesystem>
#include <iostream>
#include <ostream>
#include <sstream>

#include <boost/asio/io_context.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

namespace
{
// The address of an account that an operator makes without one.
constexpr char16_t NO_EMAIL[] = u"none@invalid";

struct Context
{
    const GServerConfig& config;
    GServerStore store;
    std::ostream& out;
    std::ostream& err;

    int fail( const GString& text ) const
    {
        err << "velmora-server: " << text << "\n";
        return 1;
    }
    GString fullName( const GString& name ) const
    {
        return name.find( '@' ) == GString::npos ? name + "@" + config.domain : name;
    }
    GPasswordLimits limits( ) const
    {
        return { static_cast<uint64_t>( config.passwordPasses ),
                 static_cast<uint64_t>( config.passwordMemoryKiB ) * 1024 };
    }
};

// "-" stands for a line of the standard input: what is on the command line, every user of the machine can read.
GString passwordOf( const GString& argument )
{
    if( argument != "-" ) return argument;
    GString line;
    std::getline( std::cin, line );
    return line;
}

int addUser( Context& context, const std::vector<GString>& a )
{
    const GString name = context.fullName( a[2] );
    const GWString email = a.size( ) > 4 ? GUTF8ToWide( a[4] ) : GWString( NO_EMAIL );
    const bool ours = name.ends_with( "@" + context.config.domain );
    const GString local = name.substr( 0, name.find( '@' ) );
    const GString password = passwordOf( a[3] );
    const GString bad =
        ours ? GLogonService::testAccount( context.config, GUTF8ToWide( local ), GUTF8ToWide( password ), email )
             : "Bad domain";
    if( !bad.empty( ) ) return context.fail( bad );
    const GString hash = GPasswordHash( password, context.limits( ) );
    const GAccount account{ name, hash, a.size( ) > 4 ? a[4] : GString( ), GTimeGetTime( ) };
    if( hash.empty( ) || !context.store.addAccount( account ) )
        return context.fail( "'" + name + "' is there already" );
    context.out << "added " << name << "\n";
    return 0;
}
int setPassword( Context& context, const std::vector<GString>& a )
{
    const GString name = context.fullName( a[2] );
    const GString local = name.substr( 0, name.find( '@' ) );
    const GString password = passwordOf( a[3] );
    const GString bad =
        GLogonService::testAccount( context.config, GUTF8ToWide( local ), GUTF8ToWide( password ), NO_EMAIL );
    if( !bad.empty( ) ) return context.fail( bad );
    const GString hash = GPasswordHash( password, context.limits( ) );
    if( hash.empty( ) || !context.store.setPassword( name, hash ) ) return context.fail( "no account '" + name + "'" );
    context.out << "changed " << name << "\n";
    return 0;
}
int removeUser( Context& context, const std::vector<GString>& a )
{
    const GString name = context.fullName( a[2] );
    if( !context.store.removeAccount( name ) ) return context.fail( "no account '" + name + "'" );
    context.out << "removed " << name << "\n";
    return 0;
}
int listUsers( Context& context, const std::vector<GString>& )
{
    for( const GAccount& account : context.store.listAccounts( ) )
        context.out << account.name << "\t" << account.email << "\n";
    return 0;
}
// Both lists gain the other, so that the two see each other at once.
int addBuddies( Context& context, const std::vector<GString>& a )
{
    const GString first = context.fullName( a[2] );
    const GString second = context.fullName( a[3] );
    for( const GString& name : { first, second } )
        if( !context.store.getAccount( name ) ) return context.fail( "no account '" + name + "'" );
    if( !context.store.addBuddy( first, second ) || !context.store.addBuddy( second, first ) )
        return context.fail( "the store failed" );
    context.out << "buddies " << first << " " << second << "\n";
    return 0;
}

// The running server's figures; empty when there is none.
GString fetchMetrics( const GString& host )
{
    namespace asio = boost::asio;
    asio::io_context io;
    asio::ip::tcp::endpoint endpoint;
    asio::ip::tcp::socket socket( io );
    boost::system::error_code code;
    if( !GEndpoint::parse( host, endpoint ) || socket.connect( endpoint, code ) ) return { };
    asio::write( socket, asio::buffer( GString( "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n" ) ), code );
    GString text;
    asio::read( socket, asio::dynamic_buffer( text ), code );
    const size_t body = text.find( "\r\n\r\n" );
    return body == GString::npos ? GString( ) : text.substr( body + 4 );
}
int status( Context& context, const std::vector<GString>& )
{
    const GString ready = context.store.getValue( "ready" );
    const size_t mark = ready.find( " metrics=" );
    const GString metrics = mark == GString::npos ? GString( ) : fetchMetrics( ready.substr( mark + 9 ) );
    const uint64_t now = GTimeGetTime( );
    size_t live = 0;
    for( const GRegistration& registration : context.store.listRegistrations( ) ) live += registration.expires >= now;
    context.out << ( metrics.empty( ) ? "stopped" : "running" ) << "\n";
    if( !metrics.empty( ) ) context.out << ready.substr( ready.find( ' ' ) + 1 ) << "\n";
    context.out << "accounts " << context.store.listAccounts( ).size( ) << "\nregistrations " << live << "\n"
                << metrics;
    return metrics.empty( ) ? 1 : 0;
}

// While it runs, too.
int backUp( Context& context, const std::vector<GString>& a )
{
    GString error;
    if( !context.store.backup( a[1], error ) ) return context.fail( error );
    context.out << "backed up " << context.store.listAccounts( ).size( ) << " accounts to " << a[1] << "\n";
    return 0;
}
// A store that is too damaged to be opened, with its log.
bool moveAside( const GString& path, std::ostream& err )
{
    err << "velmora-server: the store can't be opened; it is kept as '" << path << ".damaged'\n";
    for( const char* suffix : { "", "-wal", "-shm" } )
    {
        std::error_code none;
        std::filesystem::rename( path + suffix, path + ".damaged" + suffix, none );
        if( none && none != std::errc::no_such_file_or_directory ) return false;
    }
    return true;
}
int restore( Context& context, const std::vector<GString>& a )
{
    GString error;
    const GString ready = context.store.getValue( "ready" );
    const size_t mark = ready.find( " metrics=" );
    // It holds registrations in memory, and would write them over what is restored.
    if( mark != GString::npos && !fetchMetrics( ready.substr( mark + 9 ) ).empty( ) )
        return context.fail( "the server runs: stop it first" );
    if( !context.store.restore( a[1], error ) ) return context.fail( error );
    context.out << "restored " << context.store.listAccounts( ).size( ) << " accounts from " << a[1] << "\n";
    return 0;
}
// Day and time in UTC.
GString dateOf( uint64_t time )
{
    constexpr uint64_t SECONDS_1601_TO_1970 = 11644473600;
    const auto seconds = static_cast<std::time_t>( time / 1000000 - SECONDS_1601_TO_1970 );
    std::tm split{ };
    gmtime_r( &seconds, &split );
    char text[32];
    std::strftime( text, sizeof( text ), "%Y-%m-%d %H:%M", &split );
    return text;
}
int listReports( Context& context, const std::vector<GString>& )
{
    for( const GBugReport& report : context.store.listBugReports( ) )
    {
        context.out << dateOf( report.time ) << "\t" << report.user << "\t"
                    << GServerMessage::loggable( GUTF8ToWide( report.email ) ) << "\n";
        std::istringstream lines( report.text );
        for( GString line; std::getline( lines, line ); )
            context.out << "    " << GServerMessage::printable( GUTF8ToWide( line ) ) << "\n";
    }
    return 0;
}

// Without the store: a check changes nothing. 1 when the server would not run as its settings say.
int check( const GServerConfig& config, std::ostream& out )
{
    bool wrong = false;
    for( const GFinding& finding : GServerCheck::run( config ) )
    {
        wrong |= finding.kind == GFINDING_ERROR;
        out << GServerCheck::compose( finding ) << "\n";
    }
    if( !wrong ) out << "the settings are good\n";
    return wrong ? 1 : 0;
}

struct Row
{
    std::string_view command;
    std::string_view action; // Empty when the command has none.
    size_t least;
    size_t most;
    int ( *run )( Context& context, const std::vector<GString>& arguments );
    std::string_view help;
};
constexpr Row ROWS[] = {
    { "user", "add", 4, 5, addUser, "user add NAME PASSWORD [EMAIL]  creates an account; - reads the password" },
    { "user", "passwd", 4, 4, setPassword, "user passwd NAME PASSWORD       gives it another password" },
    { "user", "remove", 3, 3, removeUser, "user remove NAME                removes it" },
    { "user", "list", 2, 2, listUsers, "user list                       all accounts with their e-mail addresses" },
    { "buddy", "add", 4, 4, addBuddies, "buddy add NAME NAME             makes two accounts buddies of each other" },
    { "report", "list", 2, 2, listReports, "report list                     the bug reports of clients" },
    { "backup", "", 2, 2, backUp,
      "backup FILE                     copies the store to FILE, also while the server runs" },
    { "restore", "", 2, 2, restore,
      "restore FILE                    puts such a copy in the store's place; the server must be stopped" },
    { "status", "", 1, 1, status, "status                          whether the server runs, and its figures" },
};
} // namespace

namespace GServerCommands
{
GString usage( )
{
    GString text =
        "Usage: velmora-server [--config FILE]             runs the server until SIGTERM; SIGHUP reads FILE again\n"
        "       velmora-server [--config FILE] COMMAND     one of:\n";
    for( const Row& row : ROWS ) text.append( "  " ).append( row.help ).append( "\n" );
    text += "  check                           what is wrong with the settings, on this machine\n";
    return text + "       velmora-server --help\n"
                  "\n"
                  "Without a file every role runs on loopback, from TCP port 4430 on, with velmora-server.db in the "
                  "working directory.\n"
                  "A NAME without a domain gets that of the settings. docs/server.md tells all settings.\n";
}

int run( const GServerConfig& config, const std::vector<GString>& arguments, std::ostream& out, std::ostream& err )
{
    if( arguments == std::vector<GString>{ "check" } ) return check( config, out );
    for( const Row& row : ROWS )
    {
        const bool named = !arguments.empty( ) && arguments[0] == row.command &&
                           ( row.action.empty( ) || ( arguments.size( ) > 1 && arguments[1] == row.action ) );
        if( !named || arguments.size( ) < row.least || arguments.size( ) > row.most ) continue;
        Context context{ config, { }, out, err };
        GString error;
        bool open = GPasswordInitialize( ) && context.store.open( config.store, error );
        if( !open && row.run == restore )
            open = moveAside( config.store, err ) && context.store.open( config.store, error );
        if( !open ) return context.fail( error );
        return row.run( context, arguments );
    }
    err << usage( );
    return 2;
}
} // namespace GServerCommands
