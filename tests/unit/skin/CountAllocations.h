// How often this test program has allocated so far, for the passes that must not.
#pragma once

#include <cstdint>

int64_t CountAllocations( );
