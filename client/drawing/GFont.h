// Turns a font string "size,style,color,face" into text pixels. The last text is kept as an image, so a repeated draw is one copy.
// User-interface thread only.
#pragma once

#include "base/GRect.h"
#include "base/GTypes.h"
#include "image/GImageFormat.h"
#include "runtime/GObject.h"

#include <memory>

class GFont : public GHeapObject
{
public:
    GFont( );
    ~GFont( ) override;

    // True when anything changed; a string equal but for case changes nothing.
    // Size 16, no style, color "#000000FF" and face "Tahoma" are taken where a field is empty.
    bool update( const GWString& fontString );
    // The size of the text in pixels; with several lines ("m") it is broken at `width` when that comes in above 0.
    void measureText( const GWString& text, int& width, int& height );
    // Draws into a premultiplied GIT_RGBA32 image, clipped by `clip`; the height of the text. `touched`, when given, grows by the
    // changed rectangle.
    int drawText( const GImageFormat& format, char* pixels, const GWString& text, const GRect& rect, const GRect& clip,
                  GRect* touched = nullptr );
    // The height of one line in pixels.
    int getHeight( );

    const GWString& getFontString( ) const { return _fontString; }
    const GWString& getFace( ) const { return _face; }
    int getSize( ) const { return _size; }
    uint32_t getColour( ) const { return _colour; } // 0xAARRGGBB
    bool isBold( ) const { return _bold; }
    bool isItalic( ) const { return _italic; }
    bool isUnderlined( ) const { return _underline; }
    bool isStruckOut( ) const { return _strikeOut; }
    bool isAntialiased( ) const { return _antialiased; }
    bool isMultiLine( ) const { return _multiLine; }
    bool isCentred( ) const { return _centred; }
    bool isRightAligned( ) const { return _right; }
    // The platform's font, for texts that are laid out by others; it holds until the next update.
    struct GTextRecord* getPlatformText( ) const;
    // How often a text was rendered anew.
    int getRenderCount( ) const { return _renderCount; }

private:
    struct Platform;

    void _parseStyle( const GWString& style );
    void _render( const GWString& text, int width, int height );

    GWString _fontString;
    GWString _face;
    int _size = 16;
    uint32_t _colour = 0xFF000000;
    bool _bold = false;
    bool _italic = false;
    bool _underline = false;
    bool _strikeOut = false;
    bool _antialiased = true;
    bool _multiLine = false;
    bool _centred = false;
    bool _right = false;

    std::unique_ptr<Platform> _platform;
    GString _gdiBuffer; // Coverage of the text, one byte a pixel; only grows.
    GWString _text;     // What `_image` shows.
    GImageFormat _imageFormat;
    GString _image; // GIT_BGRA32 with straight alpha.
    int _textHeight = 0;
    int _renderCount = 0;
};
