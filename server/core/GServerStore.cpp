#include "server/core/GServerStore.h"

#include "base/GPortable.h"
#include "server/core/GServerSchema.h"

#include <sqlite3.h>

namespace
{
constexpr char PRAGMAS[] = R"(
PRAGMA journal_mode=WAL;
PRAGMA synchronous=NORMAL;
PRAGMA foreign_keys=ON;
)";
constexpr uint64_t MAX_REPORTS = 10000;
} // namespace

// One statement in use: bind in order, then step. What was prepared is kept for the next use of the same text.
class GServerStore::Statement
{
public:
    Statement( Database& database, const char* sql ) : _database( database ), _sql( sql )
    {
        const auto kept = database.prepared.find( sql );
        if( kept != database.prepared.end( ) ) std::swap( _statement, kept->second );
        if( !_statement ) _failed = sqlite3_prepare_v2( _database, sql, -1, &_statement, nullptr ) != SQLITE_OK;
    }
    ~Statement( )
    {
        if( _failed ) GLOG( u"ERROR Store failed: ", std::string_view( sqlite3_errmsg( _database ) ) );
        sqlite3_stmt*& kept = _database.prepared[_sql];
        sqlite3_reset( _statement );
        if( kept || _failed )
            sqlite3_finalize( _statement );
        else
            kept = _statement;
    }
    Statement( const Statement& ) = delete;
    Statement& operator=( const Statement& ) = delete;

    Statement& bind( const GString& text )
    {
        if( !_failed )
            sqlite3_bind_text( _statement, ++_index, text.data( ), static_cast<int>( text.size( ) ), SQLITE_TRANSIENT );
        return *this;
    }
    Statement& bind( uint64_t number )
    {
        if( !_failed ) sqlite3_bind_int64( _statement, ++_index, static_cast<int64_t>( number ) );
        return *this;
    }
    bool row( )
    {
        _database.beforeUse( );
        if( _failed ) return false;
        const int result = sqlite3_step( _statement );
        // A broken constraint is an answer ("taken"), not a failure.
        _failed = result != SQLITE_ROW && result != SQLITE_DONE && result != SQLITE_CONSTRAINT;
        _done = result == SQLITE_DONE;
        return result == SQLITE_ROW;
    }
    // Runs to its end; true when it changed at least `changes` rows.
    bool run( int changes = 0 )
    {
        row( );
        return _done && sqlite3_changes( _database ) >= changes;
    }
    GString text( int column ) const
    {
        const auto* bytes = static_cast<const char*>( sqlite3_column_blob( _statement, column ) );
        return bytes ? GString( bytes, static_cast<size_t>( sqlite3_column_bytes( _statement, column ) ) ) : GString( );
    }
    uint64_t number( int column ) const { return static_cast<uint64_t>( sqlite3_column_int64( _statement, column ) ); }

private:
    Database& _database;
    const char* _sql;
    sqlite3_stmt* _statement = nullptr;
    int _index = 0;
    bool _failed = false;
    bool _done = false;
};

GServerStore::GServerStore( ) = default;
GServerStore::~GServerStore( ) = default;
GServerStore::Database::~Database( )
{
    for( const auto& [sql, statement] : prepared ) sqlite3_finalize( statement );
    sqlite3_close( handle );
}

bool GServerStore::open( const GString& path, GString& error )
{
    error.clear( );
    bool good = sqlite3_open( path.c_str( ), &_database.handle ) == SQLITE_OK;
    if( good )
    {
        sqlite3_busy_timeout( _database, 5000 );
        good = sqlite3_exec( _database, PRAGMAS, nullptr, nullptr, nullptr ) == SQLITE_OK &&
               GServerSchema::migrate( _database, error );
    }
    if( good ) return true;
    error = "can't open the store '" + path + "': " + ( error.empty( ) ? sqlite3_errmsg( _database ) : error.c_str( ) );
    return false;
}

void GServerStore::beginBatch( )
{
    _database.batch = true;
}
bool GServerStore::endBatch( )
{
    _database.batch = false;
    if( !_database.begun ) return true;
    _database.begun = false;
    if( Statement( _database, "COMMIT" ).run( ) ) return true;
    _execute( "ROLLBACK" );
    return false;
}
// The lock is taken once a batch, not for each statement in it.
void GServerStore::Database::beforeUse( )
{
    if( !batch || begun ) return;
    begun = true; // For the statement that begins, too.
    begun = batch = Statement( *this, "BEGIN IMMEDIATE" ).run( );
}

bool GServerStore::addAccount( const GAccount& account )
{
    return Statement( _database, "INSERT INTO account VALUES(?,?,?,?)" )
        .bind( account.name )
        .bind( account.hash )
        .bind( account.email )
        .bind( account.created )
        .run( );
}
std::optional<GAccount> GServerStore::getAccount( const GString& name )
{
    Statement statement( _database, "SELECT name, hash, email, created FROM account WHERE name=?" );
    if( !statement.bind( name ).row( ) ) return std::nullopt;
    return GAccount{ statement.text( 0 ), statement.text( 1 ), statement.text( 2 ), statement.number( 3 ) };
}
bool GServerStore::setPassword( const GString& name, const GString& hash )
{
    // Who knew the old password only is no longer somebody who has logged on.
    Statement( _database, "DELETE FROM logon WHERE user=?" ).bind( name ).run( );
    return Statement( _database, "UPDATE account SET hash=? WHERE name=?" ).bind( hash ).bind( name ).run( 1 );
}
bool GServerStore::removeAccount( const GString& name )
{
    // Whoever takes the name later is somebody else: nobody's list knows him.
    for( const char* sql :
         { "DELETE FROM logon WHERE user=?", "DELETE FROM registration WHERE user=?",
           "DELETE FROM buddy WHERE user=?1 OR buddy=?1", "DELETE FROM request WHERE asker=?1 OR asked=?1",
           "DELETE FROM block WHERE user=?1 OR blocked=?1", "UPDATE device SET user='' WHERE user=?" } )
        Statement( _database, sql ).bind( name ).run( );
    return Statement( _database, "DELETE FROM account WHERE name=?" ).bind( name ).run( 1 );
}
std::vector<GAccount> GServerStore::listAccounts( )
{
    std::vector<GAccount> accounts;
    Statement statement( _database, "SELECT name, hash, email, created FROM account ORDER BY name" );
    while( statement.row( ) )
        accounts.push_back( { statement.text( 0 ), statement.text( 1 ), statement.text( 2 ), statement.number( 3 ) } );
    return accounts;
}

std::vector<GString> GServerStore::getBuddies( const GString& user )
{
    std::vector<GString> buddies;
    Statement statement( _database, "SELECT buddy FROM buddy WHERE user=? ORDER BY id" );
    statement.bind( user );
    while( statement.row( ) ) buddies.push_back( statement.text( 0 ) );
    return buddies;
}
bool GServerStore::setBuddies( const GString& user, const std::vector<GString>& buddies )
{
    _database.beforeUse( );
    if( !_execute( "SAVEPOINT list" ) ) return false;
    bool good = Statement( _database, "DELETE FROM buddy WHERE user=?" ).bind( user ).run( );
    for( const GString& buddy : buddies ) good = good && addBuddy( user, buddy );
    if( !good ) _execute( "ROLLBACK TO list" );
    return _execute( "RELEASE list" ) && good;
}
bool GServerStore::addBuddy( const GString& user, const GString& buddy )
{
    return Statement( _database, "INSERT OR IGNORE INTO buddy(user, buddy) VALUES(?,?)" )
        .bind( user )
        .bind( buddy )
        .run( );
}
bool GServerStore::hasBuddy( const GString& user, const GString& buddy )
{
    return Statement( _database, "SELECT 1 FROM buddy WHERE user=? AND buddy=?" ).bind( user ).bind( buddy ).row( );
}

bool GServerStore::addRequest( const GString& asker, const GString& asked, uint64_t now )
{
    return Statement( _database, "INSERT OR IGNORE INTO request(asker, asked, time) VALUES(?,?,?)" )
        .bind( asker )
        .bind( asked )
        .bind( now )
        .run( );
}
bool GServerStore::removeRequest( const GString& asker, const GString& asked )
{
    return Statement( _database, "DELETE FROM request WHERE asker=? AND asked=?" ).bind( asker ).bind( asked ).run( 1 );
}
std::vector<GString> GServerStore::listRequests( const GString& asked )
{
    std::vector<GString> askers;
    Statement statement( _database, "SELECT asker FROM request WHERE asked=? ORDER BY id" );
    statement.bind( asked );
    while( statement.row( ) ) askers.push_back( statement.text( 0 ) );
    return askers;
}
int64_t GServerStore::countRequests( )
{
    Statement statement( _database, "SELECT COUNT(*) FROM request" );
    return statement.row( ) ? static_cast<int64_t>( statement.number( 0 ) ) : 0;
}
bool GServerStore::addBlock( const GString& user, const GString& blocked, uint64_t keep )
{
    if( !Statement( _database, "INSERT OR IGNORE INTO block(user, blocked) VALUES(?,?)" )
             .bind( user )
             .bind( blocked )
             .run( ) )
        return false;
    return Statement( _database, "DELETE FROM block WHERE user=?1 AND id NOT IN "
                                 "(SELECT id FROM block WHERE user=?1 ORDER BY id DESC LIMIT ?2)" )
        .bind( user )
        .bind( keep )
        .run( );
}
bool GServerStore::removeBlock( const GString& user, const GString& blocked )
{
    return Statement( _database, "DELETE FROM block WHERE user=? AND blocked=?" ).bind( user ).bind( blocked ).run( 1 );
}
bool GServerStore::hasBlock( const GString& user, const GString& blocked )
{
    return Statement( _database, "SELECT 1 FROM block WHERE user=? AND blocked=?" ).bind( user ).bind( blocked ).row( );
}

bool GServerStore::addDevice( const GString& device, uint64_t now, const GString& address, uint64_t keep )
{
    if( !Statement( _database, "INSERT INTO device(device, given, address) VALUES(?,?,?)" )
             .bind( device )
             .bind( now )
             .bind( address )
             .run( ) )
        return false;
    return address.empty( ) ||
           Statement( _database, "DELETE FROM device WHERE user='' AND address=?1 AND device NOT IN "
                                 "(SELECT device FROM device WHERE user='' AND address=?1 "
                                 "ORDER BY given DESC LIMIT ?2)" )
               .bind( address )
               .bind( keep )
               .run( );
}
bool GServerStore::hasDevice( const GString& device )
{
    return Statement( _database, "SELECT 1 FROM device WHERE device=?" ).bind( device ).row( );
}
bool GServerStore::useDevice( const GString& device, const GString& user, uint64_t now, uint64_t keep )
{
    {
        Statement statement( _database, "SELECT user FROM device WHERE device=?" );
        if( !statement.bind( device ).row( ) ) return false;
        if( statement.text( 0 ) == user ) return true;
    }
    return Statement( _database, "UPDATE device SET user=?, given=?, address='' WHERE device=?" )
               .bind( user )
               .bind( now )
               .bind( device )
               .run( 1 ) &&
           Statement( _database, "DELETE FROM device WHERE user=?1 AND device NOT IN "
                                 "(SELECT device FROM device WHERE user=?1 ORDER BY given DESC LIMIT ?2)" )
               .bind( user )
               .bind( keep )
               .run( );
}

bool GServerStore::addLogon( const GString& user, const GString& address, uint64_t now )
{
    return Statement( _database, "INSERT OR REPLACE INTO logon(address, user, time) VALUES(?,?,?)" )
        .bind( address )
        .bind( user )
        .bind( now )
        .run( );
}
bool GServerStore::hasLogon( const GString& user, const GString& address, uint64_t since )
{
    return Statement( _database, "SELECT 1 FROM logon WHERE address=? AND user=? AND time>=?" )
        .bind( address )
        .bind( user )
        .bind( since )
        .row( );
}
bool GServerStore::hasAnyLogon( const GString& address, uint64_t since )
{
    return Statement( _database, "SELECT 1 FROM logon WHERE address=? AND time>=? LIMIT 1" )
        .bind( address )
        .bind( since )
        .row( );
}

bool GServerStore::putRegistration( const GRegistration& r )
{
    return Statement( _database, "INSERT OR REPLACE INTO registration VALUES(?,?,?,?,?,?,?,?,?)" )
        .bind( r.user )
        .bind( r.device )
        .bind( r.host )
        .bind( r.listener )
        .bind( r.routes )
        .bind( r.version )
        .bind( r.expires )
        .bind( uint64_t( r.listed ) )
        .bind( uint64_t( r.contacts ) )
        .run( );
}
bool GServerStore::removeRegistration( const GString& user, const GString& device )
{
    return Statement( _database, "DELETE FROM registration WHERE user=? AND device=?" )
        .bind( user )
        .bind( device )
        .run( );
}
std::vector<GRegistration> GServerStore::listRegistrations( )
{
    std::vector<GRegistration> all;
    Statement statement(
        _database,
        "SELECT user, device, host, listener, routes, version, expires, listed, contacts FROM registration" );
    while( statement.row( ) )
        all.push_back( { statement.text( 0 ), statement.text( 1 ), statement.text( 2 ), statement.text( 3 ),
                         statement.text( 4 ), statement.text( 5 ), statement.number( 6 ), statement.number( 7 ) != 0,
                         statement.number( 8 ) != 0 } );
    return all;
}

bool GServerStore::putAllocation( const GString& host, const GString& address )
{
    return Statement( _database, "INSERT OR REPLACE INTO allocation VALUES(?,?)" ).bind( host ).bind( address ).run( );
}
bool GServerStore::removeAllocation( const GString& host )
{
    return Statement( _database, "DELETE FROM allocation WHERE host=?" ).bind( host ).run( );
}
GString GServerStore::getAllocationAddress( const GString& host )
{
    Statement statement( _database, "SELECT address FROM allocation WHERE host=?" );
    return statement.bind( host ).row( ) ? statement.text( 0 ) : GString( );
}
bool GServerStore::clearAllocations( )
{
    return _execute( "DELETE FROM allocation" );
}
int64_t GServerStore::countAllocations( )
{
    Statement statement( _database, "SELECT COUNT(*) FROM allocation" );
    return statement.row( ) ? static_cast<int64_t>( statement.number( 0 ) ) : 0;
}

bool GServerStore::addBugReport( const GString& user, const GString& email, const GString& text, uint64_t now )
{
    return Statement( _database, "INSERT INTO report(user, email, text, time) VALUES(?,?,?,?)" )
        .bind( user )
        .bind( email )
        .bind( text )
        .bind( now )
        .run( );
}
std::vector<GBugReport> GServerStore::listBugReports( )
{
    std::vector<GBugReport> reports;
    Statement statement( _database, "SELECT user, email, text, time FROM report ORDER BY id" );
    while( statement.row( ) )
        reports.push_back( { statement.text( 0 ), statement.text( 1 ), statement.text( 2 ), statement.number( 3 ) } );
    return reports;
}
int64_t GServerStore::countBugReports( const GString& user, uint64_t since )
{
    Statement statement( _database, "SELECT COUNT(*) FROM report WHERE user=? AND time>=?" );
    return statement.bind( user ).bind( since ).row( ) ? static_cast<int64_t>( statement.number( 0 ) ) : 0;
}
bool GServerStore::setValue( const GString& name, const GString& value )
{
    return Statement( _database, "INSERT OR REPLACE INTO value VALUES(?,?)" ).bind( name ).bind( value ).run( );
}
GString GServerStore::getValue( const GString& name )
{
    Statement statement( _database, "SELECT value FROM value WHERE name=?" );
    return statement.bind( name ).row( ) ? statement.text( 0 ) : GString( );
}
bool GServerStore::expire( uint64_t logonsSince, uint64_t now )
{
    const bool logons = Statement( _database, "DELETE FROM logon WHERE time<?" ).bind( logonsSince ).run( ) &&
                        Statement( _database, "DELETE FROM report WHERE id<=(SELECT MAX(id) FROM report)-?" )
                            .bind( MAX_REPORTS )
                            .run( );
    return Statement( _database, "DELETE FROM registration WHERE expires<?" ).bind( now ).run( ) && logons;
}

bool GServerStore::Database::execute( const char* sql )
{
    if( sqlite3_exec( handle, sql, nullptr, nullptr, nullptr ) == SQLITE_OK ) return true;
    GLOG( u"ERROR Store failed: ", std::string_view( sqlite3_errmsg( handle ) ) );
    return false;
}
