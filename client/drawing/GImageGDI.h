// A small drawing board of type GIT_BGRA32 for pictures made of lines. Any one thread at a time.
#pragma once

#include "base/GTypes.h"
#include "image/GImageFormat.h"

class GImageGDI
{
public:
    // Precondition: type GIT_BGRA32, at least 1 by 1. Keeps the pixels when the size is unchanged, else they are zero.
    void resize( const GImageFormat& format );
    // Fills with a colour text such as "#000000FF".
    void clear( GWStringView colour );
    void setColor( GWStringView colour );
    // Both ends are drawn; what lies outside is clipped.
    void drawLine( int x1, int y1, int x2, int y2 );
    // The picture as GIT_RGB24.
    void convertToRGB( GImageFormat& format, GString& pixels ) const;

    const GImageFormat& getFormat( ) const { return _format; }
    const GString& getPixels( ) const { return _pixels; }

private:
    void _setPixel( int x, int y );

    GImageFormat _format;
    GString _pixels;
    uint32_t _colour = 0xFF000000;
};
