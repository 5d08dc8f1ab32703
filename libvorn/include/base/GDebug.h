// The log file, the crash handler and the process figures. Open and close on the main thread; GLog lines from any thread.
// The live log is <base>.log under an advisory lock, which is the single-instance test; a closed log is named by how it ended.
#pragma once

#include "base/GTypes.h"

#include <utility>

// Stores the restart command, brings the platform up (GInitializeNonPortable) and fills the hooks of GPortable.
void GDebugOpen( const GString& restartPath, const GString& restartArgs );
// Replaces the arguments of a crash restart, e.g. by the options that this run was started with. False, and nothing changes, when
// they are too long for what is set aside for them (4096 bytes with the path, 62 words).
bool GDebugSetRestartArgs( const GString& restartArgs );
// Moves an old live log aside ("_clean" or "_dirty" by its last 32 bytes), opens the new one. False when another instance holds it.
bool GLogOpen( const GWString& base, bool echo );
// Writes the closing marker and renames; the final path, or empty when no log was open.
GWString GLogClose( bool clean );
// Ends the process: dumps the call stack, asks the user, restarts when agreed. The first thread in owns the crash.
[[noreturn]] void GDebugAbort( );
// Shows the crash dialog; true when the user agrees to a restart. Logs the comment.
bool GDebugCaptureCrashInfo( );
// Process CPU in percent since the last call, with (percent, thread name) for each thread of the table.
double GDebugGetPerformance( std::vector<std::pair<double, GWString>>& threads );
// Signal and exception entry points.
void _GPOnSignal( int signal );
// Logs the exception's name. No heap.
void _GPNameException( unsigned code );
bool GIsSystemTerminating( );
// True for a name that ends in "password", in any case: its value never leaves the process in a log line.
bool GLogIsSecret( GWStringView name );
// The value as it may be logged: eight stars for what is secret and not empty. A view of `value` or of a constant.
GWStringView GLogMask( GWStringView name, GWStringView value );
