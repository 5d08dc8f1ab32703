// Failure entry points of the platform: signals and escaped exceptions arrive here and end in the crash handler. Also what the
// crash handler needs while the heap can't be trusted: a bare log file, the dialog in a program of its own, a restart.
#pragma once

#include "base/GTypes.h"

// Handles SIGABRT, SIGFPE, SIGILL, SIGSEGV, SIGBUS and SIGTERM and the language's terminate on an alternate stack, and prepares all
// that a crash needs. Called once by GInitializeNonPortable, on the main thread.
void GCrashInstall( void ( *crashHandler )( ) );
// Gives the calling thread its alternate signal stack, until GCrashCloseThread. GThreadOpen does it for its own threads.
void GCrashOpenThread( );
void GCrashCloseThread( );
// The display connection's descriptor: a crash on the user-interface thread shuts it down, which frees pointer grabs. -1: none.
void GCrashSetDisplaySocket( int descriptor );
void ( *GCrashGetHandler( ) )( );

// The exception's code is 0xC0000005 and its kin; answers 0x80010001 for codes that are let through, else logs, aborts, answers 1.
unsigned _GPInfoExceptFilter( unsigned code );
// The nearest exception code of a signal and its detail.
unsigned GCrashCodeOfSignal( int signal, int detail );
const char* GCrashNameOfCode( unsigned code );

// What the user answered to the crash dialog. `comment` is empty when it was left as it was preset.
struct GCrashAnswer
{
    bool restart = false;
    bool commented = false;
    char comment[4097] = { };
};
// Shows the dialog of the helper program and waits for it. False on Cancel, on close and without a display. No heap is used.
bool GCrashAsk( GCrashAnswer& answer );
// Prepares the program and the arguments (cut at single blanks) of a restart, and starts it. The start uses no heap.
void GCrashPrepareRestart( const GString& path, const GString& arguments );
bool GCrashRestart( );
// Ends the process at once with that status: no destructors, no exit handlers.
[[noreturn]] void GCrashExit( int status );
