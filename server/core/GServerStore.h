// What the server must not lose: accounts, buddy lists, device ids, live registrations, logons, relay addresses,
// requests for a contact, bug reports.
// SQLite in write-ahead mode: whatever a call has stored survives the kill of the process. Several processes of one machine may
// share a store. Network thread only; a call that fails logs an ERROR line and reports it. Times are GTimeGetTime microseconds.
#pragma once

#include "base/GTypes.h"

#include <memory>
#include <optional>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

struct GAccount
{
    GString name; // "user@domain"
    GString hash; // libsodium's text of salt, limits and hash.
    GString email;
    uint64_t created = 0;
};

struct GRegistration
{
    GString user;
    GString device;
    GString host;     // "ip:port" that it was heard from.
    GString listener; // The signalling host that heard it, as bound.
    GString routes;   // Joined list, as it goes into an answer.
    GString version;
    uint64_t expires = 0;
    bool listed = false;   // A GETBUDDYLIST was answered since it began.
    bool contacts = false; // It understands requests for a contact.
};

struct GBugReport
{
    GString user;
    GString email;
    GString text;
    uint64_t time = 0;
};

class GServerStore
{
public:
    GServerStore( );
    ~GServerStore( );
    GServerStore( const GServerStore& ) = delete;
    GServerStore& operator=( const GServerStore& ) = delete;

    // ":memory:" keeps everything in memory; a file of an earlier version becomes one of this. False with the reason.
    bool open( const GString& path, GString& error );

    // ---- What is stored between these two becomes durable at the end, at once: an answer that acknowledges it must leave after a
    // good end. False when nothing of it was kept. Nothing is begun before the first call that
    // reads or changes something.
    void beginBatch( );
    bool endBatch( );

    // Reads the whole file; false with what is wrong in it.
    bool check( GString& error );
    // Copies everything as it is at one moment to a new file, also while others write. A good copy takes the place of what `path` was
    // before; false with the reason leaves that alone.
    bool backup( const GString& path, GString& error );
    // Takes over everything from such a copy. Nobody else may have this store open.
    bool restore( const GString& path, GString& error );

    // ---- Accounts. False when the name is taken, or is not there.
    bool addAccount( const GAccount& account );
    std::optional<GAccount> getAccount( const GString& name );
    bool setPassword( const GString& name, const GString& hash );
    bool removeAccount( const GString& name );
    std::vector<GAccount> listAccounts( );

    // ---- Buddies, in the order in which they were added.
    std::vector<GString> getBuddies( const GString& user );
    bool setBuddies( const GString& user, const std::vector<GString>& buddies );
    bool addBuddy( const GString& user, const GString& buddy );
    bool hasBuddy( const GString& user, const GString& buddy );

    // ---- Requests for a contact, in the order in which they were made, and who wants none of whom.
    bool addRequest( const GString& asker, const GString& asked, uint64_t now );
    // False when there was none.
    bool removeRequest( const GString& asker, const GString& asked );
    std::vector<GString> listRequests( const GString& asked );
    int64_t countRequests( );
    // The `keep` newest of a user stay.
    bool addBlock( const GString& user, const GString& blocked, uint64_t keep );
    bool removeBlock( const GString& user, const GString& blocked );
    bool hasBlock( const GString& user, const GString& blocked );

    // ---- Device ids that the server gave out. One that nobody has used yet counts for the address that it was given to, of which
    // the `keep` newest stay; a used one for its last user, likewise.
    bool addDevice( const GString& device, uint64_t now, const GString& address = { }, uint64_t keep = 0 );
    bool hasDevice( const GString& device );
    // False when it was never given out.
    bool useDevice( const GString& device, const GString& user, uint64_t now, uint64_t keep );

    // ---- Logons: who has logged on from which address.
    bool addLogon( const GString& user, const GString& address, uint64_t now );
    bool hasLogon( const GString& user, const GString& address, uint64_t since );
    bool hasAnyLogon( const GString& address, uint64_t since );

    // ---- Registrations.
    bool putRegistration( const GRegistration& registration );
    bool removeRegistration( const GString& user, const GString& device );
    std::vector<GRegistration> listRegistrations( );

    // ---- Relay: the address of the connection behind an allocation.
    bool putAllocation( const GString& host, const GString& address );
    bool removeAllocation( const GString& host );
    GString getAllocationAddress( const GString& host );
    bool clearAllocations( );
    int64_t countAllocations( );

    // ---- Odds.
    bool addBugReport( const GString& user, const GString& email, const GString& text, uint64_t now );
    std::vector<GBugReport> listBugReports( );
    int64_t countBugReports( const GString& user, uint64_t since );
    bool setValue( const GString& name, const GString& value );
    GString getValue( const GString& name );
    // Forgets logons before `logonsSince`, registrations that ended before `now`, and old bug reports above a number.
    bool expire( uint64_t logonsSince, uint64_t now );

private:
    class Statement;
    // The open file with the statements that were prepared, by the place of their text, a literal; null while in use.
    struct Database
    {
        ~Database( );
        operator sqlite3*( ) const { return handle; }
        bool execute( const char* sql );
        void beforeUse( );
        sqlite3* handle = nullptr;
        std::unordered_map<const char*, sqlite3_stmt*> prepared;
        bool batch = false;
        bool begun = false;
    };
    bool _execute( const char* sql ) { return _database.execute( sql ); }

    Database _database;
};
