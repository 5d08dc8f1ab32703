// The reference part of the manual, made from the engine's own tables.
#pragma once

#include "base/GTypes.h"

// Markdown, with a line feed at the end.
GString GSkinReferenceMake( );
