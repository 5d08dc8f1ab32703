// Conversion, scaling, copying and drawing on plain pixel buffers. There is no image class: a caller holds a GImageFormat and a
// byte string side by side. A null buffer or a size below 1 aborts, as does an unsupported pair of types; GImageLoad alone reports
// failure by its result, since its input comes from files and from the network. No state, any thread.
#pragma once

#include "base/GRect.h"
#include "base/GTypes.h"
#include "image/GImageFormat.h"

// Bytes of a pixel; 0 for encoded types, GIT_IYUY and GIT_GRAY4.
int GImageBytesPerPixel( int type );
// Table entry times width times height; 0 for GIT_IYUY and GIT_GRAY4.
int64_t GImageSize( const GImageFormat& format );
int64_t GImageSizeIYUY( int width, int height );  // width * height * 3 / 2
int64_t GImageSizeGray4( int width, int height ); // two pixels a byte, each row rounded up

// Decodes a PNG, JPEG, GIF (its first picture) or BMP file to GIT_RGB24, or to GIT_RGBA32 when it has 32 bits a pixel. False, with a
// warning, for other files, damaged ones and pictures of more than 64 megapixels, of which nothing is decoded.
bool GImageLoad( const char* buffer, int length, GImageFormat& format, GString& pixels );
// PNG from a peer: the dimensions are checked against `maxPixels` before anything is decoded.
bool GImageLoadPNG( const char* buffer, int length, int64_t maxPixels, GImageFormat& format, GString& pixels );
void GImageConvert( GImageFormat& format, char* buffer, int targetType );
void GImageConvert( const GImageFormat& fromFormat, const char* fromBuffer, int targetType, GString& out );
void GImageConvert( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& rect, int targetType,
                    GString& out );
void GImageConvertFromIYUY( const GImageFormat& fromFormat, const char* fromBuffer, GImageFormat& toFormat,
                            GString& out );
void GImageConvertToIYUY( const GImageFormat& fromFormat, const char* fromBuffer, GString& out );
void GImageResize( const GImageFormat& fromFormat, const char* fromBuffer, const GImageFormat& toFormat, GString& out );
void GImageResizeIYUY( const GImageFormat& fromFormat, const char* fromBuffer, const GImageFormat& toFormat,
                       GString& out );

enum GImageCopyFlags
{
    GIC_CENTER = 0x10,
    GIC_RIGHT = 0x20,
    GIC_STRETCH_X = 0x40,
    GIC_TILE_X = 0x80,
    GIC_MIDDLE = 0x100,
    GIC_BOTTOM = 0x200,
    GIC_STRETCH_Y = 0x400,
    GIC_TILE_Y = 0x800,
    GIC_ASPECT = 0x1000,
    GIC_OPAQUE = 0x10000,
    // The target holds premultiplied colour and the source straight: what a layered window wants.
    GIC_PREMULTIPLIED = 0x20000
};
// The rectangle of the target that was touched; GRectAccumulator( ) when none.
GRect GImageCopy( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& fromRect,
                  const GImageFormat& toFormat, char* toBuffer, const GRect& toRect, int flags );
// The same, and nothing outside `clipRect` is changed; where the picture lies does not depend on the clip.
GRect GImageCopy( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& fromRect,
                  const GImageFormat& toFormat, char* toBuffer, const GRect& toRect, const GRect& clipRect, int flags );
void GImageCrop( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& fromRect, GString& out );
void GImageReframe( GImageFormat& format, GString& buffer, int newWidth, int newHeight, uint32_t background );
void GImageVertMirror( const GImageFormat& format, char* buffer );

// Colours are 0xAARRGGBB whatever the layout.
void GImageDrawHorizLine( const GImageFormat& format, char* buffer, int left, int right, int y, uint32_t colour );
void GImageDrawVertLine( const GImageFormat& format, char* buffer, int x, int top, int bottom, uint32_t colour );
void GImageInvertHorizLine( const GImageFormat& format, char* buffer, int left, int right, int y );
void GImageDrawRect( const GImageFormat& format, char* buffer, const GRect& rect, uint32_t colour );
void GImageFillRect( const GImageFormat& format, char* buffer, const GRect& rect, uint32_t colour );
void GImageInvertRect( const GImageFormat& format, char* buffer, const GRect& rect );
