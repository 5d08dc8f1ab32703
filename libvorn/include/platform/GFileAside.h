// A file that is written anew beside its place and moved there whole: whenever the process or the machine stops, and when the disk
// is full, the path holds its old content or the new one, never a part. Any thread; of two writers of one path at the same moment
// the second is refused.
#pragma once

#include "base/GTypes.h"

#include <cstdio>

struct GFileAsideRecord;
using GFileAside = GFileAsideRecord*;

// Opens "<path>.new". A symbolic link is followed to the file that it names; what is there and no plain file, such as a device, is
// written in place. A new file is for its owner alone, a replaced one keeps its permissions. Null when it can't be opened.
GFileAside GFileAsideOpen( const GString& path );
// The stream to write to, without a buffer: a full disk is seen by the write itself. The caller closes it before GFileAsideClose.
FILE* GFileAsideGetStream( GFileAside file );
// Brings what was written to the disk; call it before the stream is closed.
bool GFileAsideSync( GFileAside file );
// Moves the new file to its place when it is `whole`, removes it otherwise, and frees the handle. False when the path still has its
// old content.
bool GFileAsideClose( GFileAside file, bool whole );
