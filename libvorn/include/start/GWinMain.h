// The entry point that any program on libvorn shares: command line, log (which is the single-instance test), pending upgrade, the
// program's own GWinMain, tally of leaked objects, clean close, optional restart.
#pragma once

#include "base/GCommandLine.h"

// Runs the whole program; the exit code, 1 when it ended by asking for a restart.
int WinMain( const GString& executablePath, const GString& commandLineText );
// Supplied by the application: runs it on the main thread; true when a restart is wanted.
bool GWinMain( const GString& commandLineText );
