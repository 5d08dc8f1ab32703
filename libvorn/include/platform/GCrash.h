// Failure entry points of the platform: signals and escaped exceptions arrive here and end in the crash handler. Also what the
// crash handler needs while the heap can't be trusted: the dialog in a program of its own, a restart, an exit.
#pragma once

#include "base/GTypes.h"

// The signal number that stands for the language's terminate.
constexpr int GCRASH_TERMINATE = -2;

// Handles SIGABRT, SIGFPE, SIGILL, SIGSEGV, SIGBUS and SIGTERM and the language's terminate on an alternate stack, and prepares all
// that a crash needs. Called once by GInitializeNonPortable, on the main thread.
using GCrashHandler = void ( * )( );
void GCrashInstall( GCrashHandler crashHandler );
// The handler given to GCrashInstall, or null before.
GCrashHandler GCrashGetHandler( );
// Gives the calling thread its alternate signal stack, until GCrashCloseThread. GThreadOpen does it for its own threads.
void GCrashOpenThread( );
void GCrashCloseThread( );
// The descriptors of the display connections, two at most. Main thread.
void GCrashAddDisplaySocket( int descriptor );
void GCrashForgetDisplaySockets( );
// Gives pointer and keyboard back to the rest of the desktop: an open menu or a hotkey would keep all input from the crash dialog.
// Shuts the display connections down; a failure of another thread first makes the main thread stand still for good, since the
// toolkit ends the process when it finds its connection broken. No heap; without a display nothing happens.
void GCrashFreeInput( );

// For the codes of exceptions, 0xC0000005 and its kin: answers 0x80010001 at once for those that are let through (breakpoint,
// single step, 0x40000005); logs and aborts for all others, and answers 1 should the crash handler be unset.
unsigned _GPInfoExceptFilter( unsigned code );
// The nearest exception code of a signal and its detail, and the code's name; "(unknown)" for any other.
unsigned GCrashGetCode( int signal, int detail );
const char* GCrashGetCodeName( unsigned code );

// Notes the helper program and the environment for GCrashAsk. Heap only here.
void GCrashPrepareDialog( );
// Another program in the helper's place, for tests.
void GCrashSetDialog( const GString& path );
// What the user answered to the crash dialog. Without `commented` the text was left as it was preset.
struct GCrashAnswer
{
    bool restart = false;
    bool commented = false;
    char comment[4096] = { };
};
// Shows the dialog of the helper program and waits for it. False on Cancel, on close and without a display. No heap is used.
bool GCrashAsk( GCrashAnswer& answer );
// Prepares program and arguments (cut at single blanks) of a restart; an empty path: none. False, and nothing changes, when there is
// no room for that much. Heap only here.
bool GCrashPrepareRestart( const GString& path, const GString& arguments );
bool GCrashCanRestart( );
bool GCrashRestart( );
// Real time, whatever clock the threads run on.
void GCrashSleep( int64_t microseconds );
void GCrashSetSleep( void ( *sleep )( int64_t microseconds ) ); // Tests; null restores.
// Ends the process at once with that status: no destructors, no exit handlers.
[[noreturn]] void GCrashExit( int status );
