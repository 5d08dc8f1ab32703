// The one open log file of the process. Opening takes an advisory lock that lasts until the file is closed: a log that is locked
// belongs to a running instance. Writing needs neither heap nor lock: one line is one write.
#pragma once

#include "base/GTypes.h"

// Renames a log that was left behind; true also when there is none any more. False when a running instance holds it, or when it
// can't be renamed. Of several instances that start at once one moves the file, and none moves what another has just opened.
bool GLogFileMoveAside( const GString& fromPath, const GString& toPath );
// Creates the file, which must not exist, and locks it. False when either fails.
bool GLogFileOpen( const GString& path );
bool GLogFileIsOpen( );
bool GLogFileExists( const char* path ); // Uses no heap.
// Does nothing without an open file; a failed write is ignored.
void GLogFileWrite( const char* bytes, size_t length );
// From here to the end only the calling thread's lines are written: its next one is the last of the file. Waits for lines that are being
// written, but not for long. Uses no heap.
void GLogFileSeal( );
// Renames the open file from one path to the other and closes it. Uses no heap.
void GLogFileClose( const char* fromPath, const char* toPath );
// Writes to standard output, under the same terms.
void GLogFileEcho( const char* bytes, size_t length );
