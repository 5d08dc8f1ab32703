// The one random source of the system: 0 to 32767, as the port and counter arithmetic expects, so products never overflow.
// Any thread. Seeded from the system at start; tests seed it to replay a run.
#pragma once

#include <cstdint>

int GRandom( );
void GRandomSeed( uint32_t seed );
