// A stack of clip-and-offset frames over a 32-bit image that the window owns; the same stack paints the map that tells which input
// handler owns each pixel. Layers are premultiplied GIT_RGBA32. Positions are relative to the top frame; every operation asserts
// that the stack is not empty. Lives for one render, on the user-interface thread; pixels and input maps are borrowed.
#pragma once

#include "base/GRect.h"
#include "image/GColor.h"
#include "image/GImage.h"

#include <deque>

class GFont;
class IGInputHandler;

class GImageStack
{
public:
    GImageStack( );

    // A new layer of type GIT_RGBA32, at least 1 by 1; resets the dirty rectangle. `inputMap` holds width * height pointers.
    void pushLayer( const GImageFormat& format, char* pixels, IGInputHandler** inputMap );
    // The same for a layer of which only `part` is drawn anew: nothing outside is touched, and what is drawn inside does not depend on
    // the part.
    void pushLayer( const GImageFormat& format, char* pixels, IGInputHandler** inputMap, const GRect& part );
    // A frame at `rect` of the current one, clipped by it. Precondition: right >= left and bottom >= top.
    void pushTarget( const GRect& rect );
    void pop( );
    bool empty( ) const { return _frames.empty( ); }

    void getPosition( int& x, int& y ) const;
    void getDimensions( int& width, int& height ) const;
    // The changed part of the layer; GRectAccumulator( ) when nothing was drawn.
    const GRect& getDirtyRect( ) const { return _dirty; }
    // The top frame in the layer.
    const GRect& getFrame( ) const { return _frames.back( ).rect; }
    // False when only a part of the layer is drawn and the top frame lies outside.
    bool isWanted( ) const;
    // The same for a rectangle of the top frame.
    bool isWanted( const GRect& rect ) const;
    // True when all of the top frame that shows is drawn.
    bool isWhole( ) const;

    // Draws `sourceRect` of an image of any raw RGB or gray type. `mode` is a set of GIC_* flags.
    void drawBitmap( const GImageFormat& format, const char* pixels, const GRect& sourceRect, int mode );
    void drawBitmap( const GImageFormat& format, const char* pixels, const GRect& sourceRect, const GRect& destRect,
                     int mode );
    // Fills the frame from one colour (0xAARRGGBB) to another. With `alphaOnly` only the alpha of what stands there becomes the
    // gradient's: the pixels keep their straight colours.
    void drawGradient( uint32_t from, uint32_t to, bool vertical, bool alphaOnly );
    // The height of the text.
    int drawText( const GWString& text, GFont& font, const GRect& rect );
    int drawText( const GWString& text, GFont& font );
    void drawHorizLine( int x, int y, int width, uint32_t colour );
    void drawRect( const GRect& rect, uint32_t colour );
    void fillRect( const GRect& rect, uint32_t colour );
    void invertRect( const GRect& rect );
    // With round corners, smooth and blended; the outline is `width` pixels inside.
    void fillRoundRect( const GRect& rect, int radius, uint32_t colour );
    void drawRoundRect( const GRect& rect, int radius, int width, uint32_t colour );
    // The same with colour texts such as "#000000FF".
    void drawHorizLine( int x, int y, int width, GWStringView colour )
    {
        drawHorizLine( x, y, width, GColorFromText( colour ) );
    }
    void drawRect( const GRect& rect, GWStringView colour ) { drawRect( rect, GColorFromText( colour ) ); }
    void fillRect( const GRect& rect, GWStringView colour ) { fillRect( rect, GColorFromText( colour ) ); }

    // Makes `handler` the owner of every pixel of the frame; the last writer wins.
    void setInputHandler( IGInputHandler* handler );

    // Says that what has the keyboard's focus fills this frame, for whoever draws the ring around it; the last one wins.
    void markFocus( );
    // The frame that was marked since the layer was pushed, on the layer; false when there is none.
    bool getFocus( GRect& rect ) const;

private:
    static constexpr GRect EVERYTHING{ INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX };
    struct Frame
    {
        GRect rect;
        GRect part = EVERYTHING; // Of the layer; less when only that is drawn.
        GImageFormat format;
        char* pixels = nullptr;
        IGInputHandler** inputMap = nullptr;
    };
    bool _drawable( ) const;
    GRect _moved( const GRect& rect ) const;
    GRect _getClip( ) const;
    void _touch( const GRect& rect );

    std::deque<Frame> _frames;
    GRect _dirty;
    GRect _focus;
};
