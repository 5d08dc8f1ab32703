// The system's sound: mute, volume and wave files. The speaker line is the server's default output; the wave line is this program's
// own streams, whose volume and mute are remembered while none plays and given to each new one. Any thread. A call waits a second or
// two at most for a server that hangs, and returns at once where there is none.
#pragma once

#include "base/GTypes.h"

// Starts a wave file (uncompressed, 8 or 16 bits, one or two channels, at most 64 MiB) and returns; it ends by itself, and sounds
// already playing go on beside it, eight at most. Whatever prevents it is logged: "WARNING Unable to play sound '".
void GSoundPlay( const GWString& path );
// True if the speaker line or the wave line is muted. A line that cannot be asked is not.
bool GSoundIsMuted( );
// Mutes the speaker line; an unmute unmutes the wave line too. Nothing happens without a server.
void GSoundSetMute( bool mute );
// Speaker volume times wave volume, each from 0 to 1. A speaker line that cannot be asked counts as 1.
double GSoundGetVolume( );
// The speaker line to `volume`, held in 0 to 1, and the wave line to 1. Failure is logged: "WARNING Couldn't set volume, ignoring."
void GSoundSetVolume( double volume );
// The two lines one by one, for the online commands that set them apart. As above.
void GSoundSetLines( double speaker, double wave );
