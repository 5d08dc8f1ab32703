// Images on the blackboard: the pixels as the raw value `name`, the format as `<name>_Format`, the last change as
// `<name>_DirtyRect`. An image source is a name with an optional rectangle, "name(left,top,right,bottom)". Any thread; between an
// open and its close the blackboard's lock is held. A null instance or an empty name aborts.
#pragma once

#include "base/GRect.h"
#include "image/GImageFormat.h"
#include "runtime/GInstance.h"

// The pixels to write into, sized for `format`; what stood there is kept when the size is unchanged. Always followed by
// GImageTools_instanceWriteClose.
char* GImageTools_instanceWriteOpen( GInstance* instance, const GWString& name, const GImageFormat& format );
// Opens, copies the pixels of `data` and closes with the whole image as the dirty rectangle.
void GImageTools_instanceWrite( GInstance* instance, const GWString& name, const GImageFormat& format,
                                const char* data );
void GImageTools_instanceWrite( GInstance* instance, const GWString& name, const GImageFormat& format,
                                const GString& data );
// Stores format and dirty rectangle, releases the value and notifies the watchers of `name`.
void GImageTools_instanceWriteClose( GInstance* instance, const GWString& name, const GImageFormat& format,
                                     const GRect& dirtyRect );

// The pixels of a source, or null. A name that is not on the blackboard is loaded from the file of that name. `column` and `row`
// move the rectangle to a cell of a sprite sheet. Release with instanceReadClose in the same render; a null needs no close.
const char* GImageTools_instanceReadOpen( GInstance* instance, const GWString& source, GImageFormat& format,
                                          GRect& rect, int column = 0, int row = 0 );
// `name` may be the whole source, with its rectangle.
void GImageTools_instanceReadClose( GInstance* instance, const GWString& name );
// Format and rectangle without holding anything open; false when there is no such image.
bool GImageTools_instanceReadCheck( GInstance* instance, const GWString& source, GImageFormat& format, GRect& rect );
// Takes every image that came from a file off the blackboard, to be loaded again when it is wanted.
void GImageTools_instanceForgetFiles( GInstance* instance );
// Copies an image to another name and notifies its watchers; false when there is no such image.
bool GImageTools_instanceCopy( GInstance* instance, const GWString& source, const GWString& target );
// The changed rectangle that the last writer left; false when there is none.
bool GImageTools_instanceReadDirtyRect( GInstance* instance, const GWString& name, GRect& rect );
