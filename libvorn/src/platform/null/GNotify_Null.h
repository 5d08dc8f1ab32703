// The queue between GNotify and GWinUpdate of the backend without a desktop.
#pragma once

// Delivers what was posted before the call; false when there was nothing.
bool GNotifyDeliver( );
// Runs the timers that are due by GTimeGetTime, each once; false when none was.
bool GTimerDeliver( );
