// An ogg packet as bytes, so that a codec's frame or set-up travels by itself. All fields little-endian:
//   0 u32 b_o_s | 4 u32 e_o_s | 8 i64 granulepos | 16 i64 packetno | 24 u32 bytes | 28 data
#pragma once

#include "base/GTypes.h"

#include <ogg/ogg.h>

// Appends the packet to `buffer`.
void GSerialize( const ogg_packet& oggPacket, GString& buffer );
// Bytes taken, or 0 when a field does not fit. The packet's data points into `buffer`, without a copy; an empty packet has none.
int GDeserialize( const char* buffer, int length, ogg_packet& oggPacket );
