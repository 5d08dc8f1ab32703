// Mapped files with 64-bit sizes. A null handle is a failure that has been logged.
#pragma once

#include "base/GTypes.h"

struct GFileMapRecord;
using GFileMap = GFileMapRecord*;
GFileMap GFileMapCreate( const GWString& path,
                         int64_t size ); // Preconditions: a path, size > 0. Space is allocated at once.
GFileMap GFileMapOpen( const GWString& path, bool write );
// A view from any offset; null for a negative length or one above 31 bits.
char* GFileMapLock( GFileMap fileMap, int64_t offset, int64_t length );
void GFileMapUnlock( GFileMap fileMap, char* lock );
int64_t GFileMapGetSize( GFileMap fileMap );
void GFileMapClose( GFileMap fileMap );
