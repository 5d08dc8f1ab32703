// The tables of the store and the way from every earlier version of them to the present one. The version is SQLite's user_version;
// 0 is an empty file, or one of the time before versions were counted.
#pragma once

#include "base/GTypes.h"

struct sqlite3;

namespace GServerSchema
{
// What this program reads and writes.
constexpr int VERSION = 2;

// Brings an open database to VERSION, all steps or none; false with the reason, also when a later program has written it.
bool migrate( sqlite3* database, GString& error );
// The version that the file says it has.
int versionOf( sqlite3* database );
} // namespace GServerSchema
