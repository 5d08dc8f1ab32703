// A looping buffer of 16-bit mono samples with two cursors, for one owner that keeps it fed. The device pulls what lies at the write
// cursor and moves it on; the play cursor follows with what is being heard. Between them lies the danger zone: what is written there
// comes too late, since the device has it already or takes it at any moment. From the write cursor on, up to the play cursor, the
// owner may write. Calls are safe on any thread, one at a time; GSoundRingClose is the last.
#pragma once

#include "base/GTypes.h"

struct GSoundRingRecord;
using GSoundRing = GSoundRingRecord*;

// What waits in the sound server unless less is asked for, in microseconds: room for a scheduler's whims.
constexpr int GSOUNDRING_LATENCY = 60000;

// A ring of `bytes` (even) zeros at `frequency` samples a second, standing still at its begin. `latency`: microseconds from the write
// cursor to the ear that the server is asked for; a device that can't do so little takes more. Null when no sound server answers or it
// refuses. The caller closes it.
GSoundRing GSoundRingOpen( int frequency, int bytes, int latency = GSOUNDRING_LATENCY );
// Falls silent at once.
void GSoundRingClose( GSoundRing ring );
// Starts, or goes on where it was stopped; then it loops until it is stopped. No effect on a ring that is lost.
void GSoundRingPlay( GSoundRing ring );
void GSoundRingStop( GSoundRing ring );
// Byte positions from 0 to the size, both even: what is being heard, and the first that can still be written. False, and nothing
// changed, when the ring is lost.
bool GSoundRingGetCursors( GSoundRing ring, int& play, int& write );
// From now on what the device took is silence when its turn comes again, so that an owner who has nothing to say need not write.
void GSoundRingClearTaken( GSoundRing ring );
// The same two cursors as samples since the start, which only rise. `heard` stays 0 until the device runs. False, and nothing changed,
// when the ring is lost.
bool GSoundRingGetPositions( GSoundRing ring, int64_t& heard, int64_t& taken );
// Copies `length` bytes, at most the ring's size, to `offset`, below its size, and on at the begin. False when the ring is lost: the
// server or the output went away, for good.
bool GSoundRingWrite( GSoundRing ring, int offset, const char* data, int length );
// The same by a position that is told in samples since the start, at most the ring's size after what the device took. What the device
// has passed meanwhile is left out: it would be heard a whole round later.
bool GSoundRingWriteAt( GSoundRing ring, int64_t position, const int16_t* samples, int count );
// False for a ring that is lost, and for null.
bool GSoundRingIsAlive( GSoundRing ring );
