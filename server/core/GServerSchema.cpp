#include "server/core/GServerSchema.h"

#include <sqlite3.h>

namespace
{
// STEPS[n] leads from version n to n + 1. A step that was once released is never changed.
constexpr const char* STEPS[GServerSchema::VERSION] = {
    // Files of the time before versions were counted have these tables already.
    R"(
CREATE TABLE IF NOT EXISTS account(name TEXT PRIMARY KEY, hash TEXT NOT NULL, email TEXT NOT NULL, created INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS buddy(id INTEGER PRIMARY KEY, user TEXT NOT NULL, buddy TEXT NOT NULL, UNIQUE(user, buddy));
CREATE TABLE IF NOT EXISTS device(device TEXT PRIMARY KEY, given INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS logon(address TEXT NOT NULL, user TEXT NOT NULL, time INTEGER NOT NULL, PRIMARY KEY(address, user)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS registration(user TEXT NOT NULL, device TEXT NOT NULL, host TEXT NOT NULL, listener TEXT NOT NULL,
  routes TEXT NOT NULL, version TEXT NOT NULL, expires INTEGER NOT NULL, listed INTEGER NOT NULL, PRIMARY KEY(user, device)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS allocation(host TEXT PRIMARY KEY, address TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS report(id INTEGER PRIMARY KEY, user TEXT NOT NULL, email TEXT NOT NULL, text TEXT NOT NULL, time INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS value(name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
)",
    // Requests for a contact, who blocks whom, and who uses a device id: unused ones of an address and used ones of a user are limited.
    R"(
CREATE TABLE request(id INTEGER PRIMARY KEY, asker TEXT NOT NULL, asked TEXT NOT NULL, time INTEGER NOT NULL, UNIQUE(asked, asker));
CREATE TABLE block(id INTEGER PRIMARY KEY, user TEXT NOT NULL, blocked TEXT NOT NULL, UNIQUE(user, blocked));
ALTER TABLE registration ADD COLUMN contacts INTEGER NOT NULL DEFAULT 0;
ALTER TABLE device ADD COLUMN address TEXT NOT NULL DEFAULT '';
ALTER TABLE device ADD COLUMN user TEXT NOT NULL DEFAULT '';
CREATE INDEX device_user ON device(user, address, given);
)",
};

bool fail( sqlite3* database, GString& error )
{
    error = sqlite3_errmsg( database );
    sqlite3_exec( database, "ROLLBACK", nullptr, nullptr, nullptr );
    return false;
}
} // namespace

namespace GServerSchema
{
int versionOf( sqlite3* database )
{
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2( database, "PRAGMA user_version", -1, &statement, nullptr );
    const int version = sqlite3_step( statement ) == SQLITE_ROW ? sqlite3_column_int( statement, 0 ) : -1;
    sqlite3_finalize( statement );
    return version;
}

bool migrate( sqlite3* database, GString& error )
{
    if( versionOf( database ) == VERSION ) return true;
    // Two processes that open an old store at once: the second one waits here and finds it new.
    if( sqlite3_exec( database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr ) != SQLITE_OK )
        return fail( database, error );
    const int version = versionOf( database );
    if( version < 0 || version > VERSION )
    {
        fail( database, error );
        error = "it is of version " + std::to_string( version ) + ", and this program knows " +
                std::to_string( VERSION ) + ": a later velmora-server has written it";
        return false;
    }
    for( int step = version; step < VERSION; ++step )
        if( sqlite3_exec( database, STEPS[step], nullptr, nullptr, nullptr ) != SQLITE_OK )
            return fail( database, error );
    const GString done = "PRAGMA user_version=" + std::to_string( VERSION ) + ";COMMIT";
    return sqlite3_exec( database, done.c_str( ), nullptr, nullptr, nullptr ) == SQLITE_OK || fail( database, error );
}
} // namespace GServerSchema
