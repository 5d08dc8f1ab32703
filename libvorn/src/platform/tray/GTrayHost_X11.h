// Whether a tray host is there: one that embeds icons, or one on the session's bus.
#pragma once

// Asks at most twice a second. User-interface thread.
bool GTrayHostIsThere( );
