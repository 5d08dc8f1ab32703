// The countries that a new account may choose from, with "United States" first and the rest in alphabetical order.
#pragma once

#include "base/GUtil.h"

// A list's items end at commas, which some names hold; with `survivesCommas` "Korea, North" is "North Korea".
GStringList GCountryListGet( bool survivesCommas );
