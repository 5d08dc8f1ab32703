// Colour text, "#RRGGBB" or "#RRGGBBAA", as numbers 0xAARRGGBB. No state, any thread.
#pragma once

#include "base/GTypes.h"

#include <cstdint>

// Six digits are opaque; the "#" may be missing. Text that is no colour gives `fallback`.
uint32_t GColorFromText( GWStringView text, uint32_t fallback = 0xFF000000 );
// The same colour with its channels multiplied by its alpha, as premultiplied layers hold it.
uint32_t GColorPremultiply( uint32_t colour );
