// What the image functions share among themselves: pixel rows with a stride, converted, composed and encoded block by block.
// Strides and widths are trusted here; the public functions have tested them.
#pragma once

#include "base/GPortable.h"
#include "image/GImage.h"

#include <cstddef>
#include <string_view>

// A block of pixels inside a larger image.
struct GImageRows
{
    const uint8_t* data = nullptr;
    int stride = 0;
    int width = 0;
    int height = 0;
};

// Bytes of a row of a whole image; for GIT_GRAY4 half a byte a pixel, rounded up.
int GImageRowStride( int type, int width );
// The block `rect` of an image; for GIT_GRAY4 `data` is the first row and the column is left to the caller.
GImageRows GImageRowsOf( const GImageFormat& format, const char* buffer, const GRect& rect );
// Aborts with the text that names an unsupported pair.
void GImageUnsupported( int fromType, int toType );

// Converts between raw layouts; false when the pair is none that it knows. Knows every pair that any public function offers.
bool GImageConvertRows( int fromType, const GImageRows& from, int toType, uint8_t* to, int toStride );
// Parts pixels into planes of chroma half as wide and half as high, rounded up; false, and nothing done, for a layout that it does not
// know. A GIT_YUY2 block is of even width. Without rows it only tells whether it knows the layout.
struct GImagePlaneRows
{
    uint8_t* y = nullptr;
    uint8_t* u = nullptr;
    uint8_t* v = nullptr;
    int yStride = 0;
    int uvStride = 0;
};
bool GImageRowsToPlanes( int type, const GImageRows& from, const GImagePlaneRows& to );
// Four-byte pixels, `width` of them. The source holds straight colour.
void GImageComposeStraight( const uint8_t* from, uint8_t* to, int width );
void GImageComposePremultiplied( const uint8_t* from, uint8_t* to, int width );
void GImagePremultiplyRow( const uint8_t* from, uint8_t* to, int width );

void GImageEncodeGray4( int fromType, const GImageRows& from, GString& out );
void GImageDecodeGray4( const GImageFormat& format, const char* buffer, const GRect& rect, int toType, GString& out );
bool GImageEncodePNG( int fromType, const GImageRows& from, GString& out );
bool GImageEncodeJPEG( int fromType, const GImageRows& from, GString& out );
// Whether each chunk of a PNG file ends within the file. The library asks for a chunk's claimed length, up to 2 GiB, before it reads.
bool GImagePNGIsWhole( std::string_view file );
// Scales one block; false for a layout that cannot be scaled.
bool GImageScaleRows( int type, const GImageRows& from, uint8_t* to, int toStride, int toWidth, int toHeight );

// Scales by the mean of areas, in each direction to at most half or not at all; false, and nothing done, for other sizes or a number
// of channels other than 1, 3 and 4.
bool GImageScaleBox( int channels, const GImageRows& from, uint8_t* to, int toStride, int toWidth, int toHeight );

// Scales by interpolation to any size; false for a number of channels other than 1, 3 and 4.
bool GImageScaleLinear( int channels, const GImageRows& from, uint8_t* to, int toStride, int toWidth, int toHeight );

// Bytes that a thread keeps for intermediate rows; they only grow. `slot` 0 to 4 tells the uses apart.
uint8_t* GImageScratch( int slot, size_t size );
