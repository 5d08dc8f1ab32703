// A text laid out in a box for editing, and its pixels: laid out and drawn anew only when something changed. User-interface thread.
#pragma once

#include "base/GRect.h"
#include "base/GTypes.h"
#include "client/drawing/GImageStack.h"
#include "platform/GTextLayout.h"

class GFont;

class GTextBox
{
public:
    GTextBox( ) = default;
    ~GTextBox( );
    GTextBox( const GTextBox& ) = delete;
    GTextBox& operator=( const GTextBox& ) = delete;

    // Several lines are broken at `width`; the layout is borrowed until the next call.
    GTextLayout layout( GFont& font, const GWString& text, bool severalLines, int width );
    // Draws the part of the text that begins at (`left`, `top`) over the whole frame.
    void draw( GImageStack& images, int left, int top );
    int getLineHeight( ) const { return _lineHeight; }
    // How often pixels were made anew.
    int getDrawCount( ) const { return _drawCount; }

private:
    GTextLayout _layout = nullptr;
    GWString _text;
    GWString _fontString;
    bool _severalLines = false;
    int _width = 0;
    int _lineHeight = 1;
    uint32_t _colour = 0;
    bool _stale = true; // The pixels are not those of the layout.
    int _left = 0;
    int _top = 0;
    GImageFormat _format;
    GString _coverage;
    GString _pixels; // GIT_BGRA32 with straight alpha.
    int _drawCount = 0;
};
