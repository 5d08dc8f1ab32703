// What this program plays, by the time at which it is heard: the reference by which its echo is taken out of the microphone. One for
// the process, five seconds long; several voices are added up. Any thread, under a short lock; nothing is allocated.
#pragma once

#include <cstdint>

// Samples a second of what is kept.
constexpr int GECHO_RATE = 22000;

// Mono samples of which the first is heard at `heardAt`, microseconds of GTimeGetTime's clock, a second in the future at most.
// `voice` tells writers apart that play at the same time, such as the address of a renderer: pieces of one voice that follow each
// other within 20 ms are joined without a seam, and its clock may drift.
void GEchoReference_write( uint64_t heardAt, int frequency, const int16_t* samples, int count,
                           const void* voice = nullptr );
// What is heard from position `at` on; 0 where nothing was written. False when all of it is silent.
bool GEchoReference_read( double at, double step, int16_t* samples, int count );
// The position of a time, counted in samples of GECHO_RATE.
double GEchoReference_position( uint64_t time );
// Forgets everything.
void GEchoReference_clear( );
