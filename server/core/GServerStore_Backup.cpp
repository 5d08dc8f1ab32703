// Copies of the store, and what can be told of a damaged one.
#include "server/core/GServerSchema.h"
#include "server/core/GServerStore.h"

#include <cstdio>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr int ALL_PAGES =
    -1; // In one step: it reads one moment of the file, and in write-ahead mode nobody waits for it.

struct Closer
{
    void operator( )( sqlite3* database ) const { sqlite3_close( database ); }
};
using File = std::unique_ptr<sqlite3, Closer>;

File openFile( const GString& path, int flags )
{
    sqlite3* database = nullptr;
    const int result = sqlite3_open_v2( path.c_str( ), &database, flags, nullptr );
    File opened( database );
    if( result != SQLITE_OK ) opened.reset( );
    return opened;
}
// All pages of `from` to `to`.
bool copyPages( sqlite3* from, sqlite3* to, GString& error )
{
    sqlite3_backup* const backup = sqlite3_backup_init( to, "main", from, "main" );
    int result = backup ? SQLITE_OK : SQLITE_ERROR;
    while( result == SQLITE_OK || result == SQLITE_BUSY || result == SQLITE_LOCKED )
    {
        result = sqlite3_backup_step( backup, ALL_PAGES );
        if( result == SQLITE_BUSY || result == SQLITE_LOCKED ) sqlite3_sleep( 20 );
    }
    if( backup ) sqlite3_backup_finish( backup );
    if( result != SQLITE_DONE ) error = sqlite3_errmsg( to );
    return result == SQLITE_DONE;
}
bool isWhole( sqlite3* database, GString& error )
{
    sqlite3_stmt* statement = nullptr;
    const bool ran = sqlite3_prepare_v2( database, "PRAGMA quick_check(1)", -1, &statement, nullptr ) == SQLITE_OK &&
                     sqlite3_step( statement ) == SQLITE_ROW;
    const auto* text = ran ? reinterpret_cast<const char*>( sqlite3_column_text( statement, 0 ) ) : nullptr;
    error = text ? text : sqlite3_errmsg( database );
    sqlite3_finalize( statement );
    const bool whole = error == "ok";
    if( whole ) error.clear( );
    return whole;
}
} // namespace

bool GServerStore::check( GString& error )
{
    if( isWhole( _database, error ) ) return true;
    error = "the store is damaged (" + error + "): restore a backup of it";
    return false;
}
bool GServerStore::backup( const GString& path, GString& error )
{
    const GString partial = path + "~";
    ::unlink( partial.c_str( ) );
    File copy = openFile( partial, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE );
    bool good = copy && copyPages( _database, copy.get( ), error ) && isWhole( copy.get( ), error );
    // A single file without a log beside it, on disk when it gets its name.
    good = good && sqlite3_exec( copy.get( ), "PRAGMA journal_mode=DELETE", nullptr, nullptr, nullptr ) == SQLITE_OK;
    copy.reset( );
    good = good && ::chmod( partial.c_str( ), S_IRUSR | S_IWUSR ) == 0 &&
           std::rename( partial.c_str( ), path.c_str( ) ) == 0;
    if( good ) return true;
    ::unlink( partial.c_str( ) );
    error = "can't write a backup to '" + path + "'" + ( error.empty( ) ? GString( ) : ": " + error );
    return false;
}
bool GServerStore::restore( const GString& path, GString& error )
{
    const File copy = openFile( path, SQLITE_OPEN_READONLY );
    const int version = copy ? GServerSchema::versionOf( copy.get( ) ) : -1;
    if( !copy || !isWhole( copy.get( ), error ) || version < 1 || version > GServerSchema::VERSION )
    {
        error = "'" + path + "' is no backup of a store" + ( error.empty( ) ? GString( ) : ": " + error );
        return false;
    }
    if( copyPages( copy.get( ), _database, error ) && GServerSchema::migrate( _database, error ) && check( error ) )
        return true;
    error = "the store can't be restored: " + error;
    return false;
}
