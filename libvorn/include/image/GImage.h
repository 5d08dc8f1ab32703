// Conversion, scaling, copying and drawing on plain pixel buffers. There is no image class: a caller holds a GImageFormat and a
// byte string side by side. A null buffer or a size below 1 aborts, as does an unsupported pair of types; GImageLoad alone reports
// failure by its result, since its input comes from files and from the network. No state, any thread.
#pragma once

#include "base/GRect.h"
#include "base/GTypes.h"
#include "image/GImageFormat.h"

// ---- Sizes in bytes.

// Bytes of a pixel; 0 for encoded types, GIT_IYUY and GIT_GRAY4.
int GImageBytesPerPixel( int type );
// Table entry times width times height; 0 for GIT_IYUY and GIT_GRAY4.
int64_t GImageSize( const GImageFormat& format );
int64_t GImageSizeIYUY( int width, int height );  // width * height * 3 / 2
int64_t GImageSizeGray4( int width, int height ); // two pixels a byte, each row rounded up

// ---- Files.

// Decodes a PNG, JPEG, GIF (its first picture) or BMP file to GIT_RGB24, or to GIT_RGBA32 when it has 32 bits a pixel. False, with a
// warning, for other files, damaged ones and pictures of more than 64 megapixels, of which nothing is decoded.
bool GImageLoad( const char* buffer, int length, GImageFormat& format, GString& pixels );
// PNG from a peer: the dimensions are checked against `maxPixels` before anything is decoded. False, silently, for all that is not
// a whole PNG; `format` and `pixels` then hold nothing of use.
bool GImageLoadPNG( const char* buffer, int length, int64_t maxPixels, GImageFormat& format, GString& pixels );

// ---- Conversion. `out` becomes exactly as long as the result and keeps its memory from call to call.

// In place: GIT_RGBA32 with GIT_BGRA32 and GIT_RGB24 with GIT_BGR24, either way; sets `format.type`.
void GImageConvert( GImageFormat& format, char* buffer, int targetType );
// A whole picture: what the second form does, and pairs of raw layouts that only whole pictures need, such as adding an alpha of 255.
void GImageConvert( const GImageFormat& fromFormat, const char* fromBuffer, int targetType, GString& out );
// The part of a picture inside `rect`, which has an area and lies within it. Types 15 to 20 to GIT_PNG (without alpha) and GIT_JPEG;
// 18, 19, 20 and 15 to GIT_GRAY4 and back to 15 and 19; among 15, 19, 20, 17 and 23 what screen sharing needs. The gray of GIT_GRAY4
// is the top half of (299 * red + 587 * green + 114 * blue) / 1000, exactly; that of GIT_GRAY8 is the full-range one of JPEG.
void GImageConvert( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& rect, int targetType,
                    GString& out );
// Planes of the limited range of BT.601, as cameras and the video codec have them. `toFormat.type` is 15, 16, 19 or 20; its size is
// set. Chroma planes of odd sizes are rounded down.
void GImageConvertFromIYUY( const GImageFormat& fromFormat, const char* fromBuffer, GImageFormat& toFormat,
                            GString& out );
// From 15, 16, 19, 20 or GIT_YUY2.
void GImageConvertToIYUY( const GImageFormat& fromFormat, const char* fromBuffer, GString& out );
// The part of a picture inside `rect`, which has an area and lies within it, at the size of `toFormat`, which is GIT_IYUY of even
// width and height: a camera's picture as the video codec wants it. From the same types; pairs of GIT_YUY2 are taken whole, so that a
// part of it begins and ends at even columns at or left of the rectangle's. Takes nothing from the heap but for what a thread keeps.
void GImageCropToIYUY( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& rect,
                       const GImageFormat& toFormat, GString& out );

// Planes where a codec keeps them, the rows of each a stride apart; chroma is half as wide and half as high, rounded up.
struct GImagePlanes
{
    const uint8_t* y = nullptr;
    const uint8_t* u = nullptr;
    const uint8_t* v = nullptr;
    int yStride = 0;
    int uvStride = 0;
    int width = 0;
    int height = 0;
};
// As from GIT_IYUY. `toFormat.type` is 15, 16, 19 or 20; its size is set.
void GImageConvertFromPlanes( const GImagePlanes& from, GImageFormat& toFormat, GString& out );

// ---- Scaling. Both formats have the same type: 15, 16, 19, 20 or 23. Shrinking to half and less takes the mean of the area that each
// pixel covers, to the nearest; other sizes are interpolated between neighbours.
void GImageResize( const GImageFormat& fromFormat, const char* fromBuffer, const GImageFormat& toFormat, GString& out );
// Each of the three planes of GIT_IYUY.
void GImageResizeIYUY( const GImageFormat& fromFormat, const char* fromBuffer, const GImageFormat& toFormat,
                       GString& out );

// ---- Copying. Without a flag the top left part of the source that fits is taken.
enum GImageCopyFlags
{
    GIC_CENTER = 0x10,    // A source wider than the target gives its middle
    GIC_RIGHT = 0x20,     // or its right end.
    GIC_STRETCH_X = 0x40, // Scaled to the target's width.
    GIC_TILE_X = 0x80,    // Repeated up to the target's right edge.
    GIC_MIDDLE = 0x100,   // The same four downwards.
    GIC_BOTTOM = 0x200,
    GIC_STRETCH_Y = 0x400,
    GIC_TILE_Y = 0x800,
    GIC_ASPECT = 0x1000,  // Scaled as large as it fits without distortion, and centred.
    GIC_OPAQUE = 0x10000, // Pixels with alpha overwrite instead of being composed over what is there.
    // The target holds premultiplied colour and the source straight: what a layered window wants.
    GIC_PREMULTIPLIED = 0x20000
};
// Copies `fromRect` to `toRect`, both clipped to their pictures; types of two to four bytes a pixel, a source of another type is
// converted on its way. The rectangle of the target that was touched; GRectAccumulator( ) when none. Takes nothing from the heap
// but for what a thread keeps for rows in between.
GRect GImageCopy( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& fromRect,
                  const GImageFormat& toFormat, char* toBuffer, const GRect& toRect, int flags );
// The same, and nothing outside `clipRect` is changed; where the picture lies does not depend on the clip.
GRect GImageCopy( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& fromRect,
                  const GImageFormat& toFormat, char* toBuffer, const GRect& toRect, const GRect& clipRect, int flags );
// A new buffer of the rectangle, which has an area and lies within the picture.
void GImageCrop( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& fromRect, GString& out );
// Another size of the canvas: what fits stays at the top left, and new parts get the colour `background`.
void GImageReframe( GImageFormat& format, GString& buffer, int newWidth, int newHeight, uint32_t background );
// Turns the rows over in place; warns, and changes nothing, for types without rows of whole bytes.
void GImageVertMirror( const GImageFormat& format, char* buffer );

// ---- Drawing on types 15, 16, 19 and 20, clipped to the picture; on others it warns and changes nothing. Right and bottom ends are
// exclusive. Colours are 0xAARRGGBB whatever the layout, and overwrite. Inverting leaves the alpha.
void GImageDrawHorizLine( const GImageFormat& format, char* buffer, int left, int right, int y, uint32_t colour );
void GImageDrawVertLine( const GImageFormat& format, char* buffer, int x, int top, int bottom, uint32_t colour );
void GImageInvertHorizLine( const GImageFormat& format, char* buffer, int left, int right, int y );
void GImageDrawRect( const GImageFormat& format, char* buffer, const GRect& rect, uint32_t colour );
void GImageFillRect( const GImageFormat& format, char* buffer, const GRect& rect, uint32_t colour );
void GImageInvertRect( const GImageFormat& format, char* buffer, const GRect& rect );
