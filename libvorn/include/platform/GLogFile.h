// The one open log file of the process. Opening takes an advisory lock that lasts until the file is closed: a log that is locked
// belongs to a running instance. Writing needs neither heap nor lock: one line is one write.
#pragma once

#include "base/GTypes.h"

// True when a running instance holds the file.
bool GLogFileIsHeld( const GString& path );
// Creates the file, which must not exist, and locks it. False when either fails.
bool GLogFileOpen( const GString& path );
bool GLogFileIsOpen( );
// Does nothing without an open file; a failed write is ignored.
void GLogFileWrite( const char* bytes, size_t length );
// Renames the open file from one path to the other and closes it. Uses no heap.
void GLogFileClose( const char* fromPath, const char* toPath );
// Writes to standard output, under the same terms.
void GLogFileEcho( const char* bytes, size_t length );
