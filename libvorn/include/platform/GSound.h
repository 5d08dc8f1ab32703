// The system's sound: mute, volume and wave files, and the one-second playback ring with its two cursors.
// Speaker line: the default sink. Wave line: this program's own streams. Without a sound server every call is a quiet no-op.
#pragma once

#include "base/GTypes.h"

void GSoundPlay( const GWString& path );
bool GSoundIsMuted( );
void GSoundSetMute( bool mute );
double GSoundGetVolume( ); // Speaker volume times wave volume, each 0 to 1.
void GSoundSetVolume( double volume );
// The two lines one by one, for the online commands that set them apart.
void GSoundSetLines( double speaker, double wave );

// A looping buffer of 16-bit mono samples. The device pulls between the cursors' danger zone; the owner writes ahead of the write
// cursor. Any one thread at a time.
struct GSoundRingRecord;
using GSoundRing = GSoundRingRecord*;
// `bytes`: size of the ring. Null when there is no sound server.
GSoundRing GSoundRingOpen( int frequency, int bytes );
void GSoundRingClose( GSoundRing ring );
void GSoundRingPlay( GSoundRing ring ); // Starts, looping.
void GSoundRingStop( GSoundRing ring );
// Byte positions: what is being heard, and where writing is safe.
bool GSoundRingGetCursors( GSoundRing ring, int& play, int& write );
// Copies `length` bytes to `offset`, wrapping at the end. False when the buffer is lost (the server went away).
bool GSoundRingWrite( GSoundRing ring, int offset, const char* data, int length );
bool GSoundRingIsAlive( GSoundRing ring );
