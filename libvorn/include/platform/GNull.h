// Controls of the backend without a desktop, for programs that link it: tests answer message boxes with it.
#pragma once

#include "base/GTypes.h"

// Chooses the button of GSystemMessageBox; null restores "the button that closing gives".
using GNullBoxAnswer = int ( * )( const GWString& title, const GWString& text );
void GNullSetBoxAnswer( GNullBoxAnswer answer );
