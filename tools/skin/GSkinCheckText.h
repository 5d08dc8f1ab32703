// What single texts of a skin must look like, and what was probably meant by those that do not.
#pragma once

#include "base/GTypes.h"

#include <functional>

using GSkinReport = std::function<void( const GWString& text )>;

// "; did you mean 'x'?" for the known text that is nearest, or nothing when none is near. Ignores case.
GWString GSkinSuggest( const GWString& text, const GStringVector& known );
// "#RRGGBB" or "#RRGGBBAA"; an empty text is fine.
void GSkinCheckColour( const GWString& text, const GSkinReport& report );
// "size,style,colour,face", each of which may be empty; the face must be installed.
void GSkinCheckFont( const GWString& text, const GSkinReport& report );
// Arithmetic to its end.
void GSkinCheckNumber( const GWString& text, const GSkinReport& report );
