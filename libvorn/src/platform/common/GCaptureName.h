// The names under which devices are shown and asked for. Pure, any thread.
#pragma once

#include "base/GTypes.h"

// A driver's or a server's name of a device as one line of text: control characters become blanks, blanks at the ends go, and what is
// beyond 128 characters is cut. Empty when nothing is left.
GWString GCaptureFriendlyName( GWStringView name );
