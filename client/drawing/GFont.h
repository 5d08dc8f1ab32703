// Turns a font string "size,style,color,face" into text pixels. What was drawn lately is kept as images, so a repeated draw is one
// copy; what was measured lately is kept too. Both are bounded.
// User-interface thread only.
#pragma once

#include "base/GRect.h"
#include "base/GTypes.h"
#include "image/GImageFormat.h"
#include "runtime/GObject.h"

#include <memory>
#include <vector>

class GFont : public GHeapObject
{
public:
    // What is kept of a font's texts: at most so many, of so many pixels together; one larger than that is kept alone.
    static constexpr size_t MAX_PICTURES = 128;
    static constexpr int64_t MAX_PIXELS = 131072;
    static constexpr size_t MAX_MEASURES = 64;

    GFont( );
    ~GFont( ) override;

    // True when anything changed; a string equal but for case changes nothing.
    // Our own style letter "e" lets a single line that starts at the left end in an ellipsis where its rectangle ends, instead of
    // being cut there. Size 16, no style, color "#000000FF" and face "Tahoma" are taken where a field is empty.
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
    bool endsInEllipsis( ) const { return _ellipsis; }
    // The platform's font, for texts that are laid out by others; it holds until the next update.
    struct GTextRecord* getPlatformText( ) const;
    // Told of every text that any font draws or measures, as it comes: for tests of what reaches the screen. Null ends it.
    static void setObserver( void ( *observer )( const GWString& text ) );
    // How often a text was rendered anew.
    int getRenderCount( ) const { return _renderCount; }
    size_t getPictureCount( ) const { return _pictures.size( ); }

private:
    struct Platform;

    // A text as it is drawn within a width.
    struct Picture
    {
        GWString text;
        int wrap = 0;       // The width that lines were broken at, 0 for one line.
        int fixed = 0;      // The width that it was fitted into, 0 for as wide as it is.
        int textHeight = 0; // Of the whole text.
        GImageFormat format;
        GString pixels; // GIT_BGRA32 with straight alpha.
        uint64_t lastUse = 0;
    };
    struct Measure
    {
        GWString text;
        int wrap = 0;
        int width = 0;
        int height = 0;
    };

    void _parseStyle( const GWString& style );
    const Measure& _measure( const GWString& text, int wrap );
    Picture* _find( const GWString& text, int wrap, int fixed );
    Picture& _makeRoom( int64_t pixels );
    void _render( Picture& picture );

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
    bool _ellipsis = false;

    std::unique_ptr<Platform> _platform;
    GString _gdiBuffer; // Coverage of the text, one byte a pixel; only grows.
    std::vector<Picture> _pictures;
    std::vector<Measure> _measures;
    size_t _nextMeasure = 0; // The one that makes room.
    uint64_t _useCount = 0;
    int _textHeight = 0;
    int _renderCount = 0;
};
