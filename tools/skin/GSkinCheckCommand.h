// Whether the commands of an attribute are among those that the engine knows.
#pragma once

#include "GSkinCheckText.h"

// `report` gets what is wrong; `checkPath` gets every path to a node.
void GSkinCheckCommand( const GWString& text, const GSkinReport& report, const GSkinReport& checkPath );
