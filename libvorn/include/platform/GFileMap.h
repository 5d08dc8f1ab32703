// Mapped files with 64-bit sizes. A null handle is a failure that has been logged. Views may be taken and given back on any thread;
// the caller closes the handle after the last of them.
#pragma once

#include "base/GTypes.h"

struct GFileMapRecord;
using GFileMap = GFileMapRecord*;
// A new file of `size` bytes for this process alone, readable and writable. The space is allocated at once, so that writing through a
// view never meets a full disk; what can't be had is deleted again. Preconditions: a path, size > 0.
GFileMap GFileMapCreate( const GWString& path, int64_t size );
// An existing file, for reading or for both.
GFileMap GFileMapOpen( const GWString& path, bool write );
// A view of `length` bytes from any offset; null for a negative length or one above 31 bits, and for what lies outside of the file.
// Up to 16 MiB of a file opened for reading come as a copy, so that it may shrink meanwhile without a fault.
char* GFileMapLock( GFileMap fileMap, int64_t offset, int64_t length );
// `lock` is what GFileMapLock gave. Preconditions: both are there.
void GFileMapUnlock( GFileMap fileMap, char* lock );
// Bytes; 0 on failure.
int64_t GFileMapGetSize( GFileMap fileMap );
void GFileMapClose( GFileMap fileMap );
