// The small window that says what a control is for. It comes once the pointer has rested on the control for REST microseconds and is
// gone at once when the pointer leaves the control, a button or a key is pressed, or its owner tells it to go; after a press the pointer
// must come anew. It stands below the control, or above where the screen ends, and takes neither pointer nor keyboard.
// Its look is the skin's: "$hintfont", a picture "$hintsrc" in nine pieces with corners of "$hintslice", and "$hintpad" around the text.
// User-interface thread.
#pragma once

#include "client/skin/GSkinTable.h"
#include "client/skin/nodes/GNodeTools.h"
#include "platform/GTimer.h"
#include "platform/GWin.h"

#include <functional>

class IGInputHandler;

// What GHint::read reads, for the table of windows.
constexpr GAttributeRow GHINT_LOOK_ATTRIBUTES[] = {
    { u"hintfont", GAttributeKind::font, u"", u"The font of the hints that show when the pointer rests." },
    { u"hintsrc", GAttributeKind::image, u"", u"The ground of hints, in nine pieces; empty: a plain pale one." },
    { u"hintslice", GAttributeKind::number, u"0", u"The corners of that picture that keep their size." },
    { u"hintpad", GAttributeKind::number, u"4",
      u"The room around the text of hints, and between them and what they are about." },
};

class GHint : private IGWinListener, public IGTimerListener
{
public:
    static constexpr int64_t REST = 600000;
    // Where on the desktop a control stands; empty when nowhere.
    using Finder = std::function<GRect( const IGInputHandler* )>;

    // `instance` is borrowed.
    GHint( GInstance* instance, Finder finder );
    ~GHint( ) override;
    GHint( const GHint& ) = delete;
    GHint& operator=( const GHint& ) = delete;

    // Reads the look.
    void read( GAttributeStack& stack );

    // The pointer is there, above that control with that text; null or no text is what has no hint.
    void point( const IGInputHandler* control, GWStringView text, int x, int y );
    // A button or a key was pressed.
    void dismiss( );
    // The pointer is elsewhere, or the window has gone.
    void leave( ) { point( nullptr, { }, 0, 0 ); }

    // That control goes.
    void forget( const IGInputHandler* control )
    {
        if( control == _control ) leave( );
    }

    bool isWaiting( ) const { return _timer; }
    bool isShown( ) const { return _win; }
    // Its text as it shows, and its place on the desktop; empty while it does not show.
    GWStringView getText( ) const { return _win ? GWStringView( _text ) : GWStringView( ); }
    const GRect& getRect( ) const { return _rect; }
    // As it was drawn last: premultiplied GIT_RGBA32.
    const GString& getPixels( ) const { return _pixels; }

    void onTimer( GTimer timer ) override;

private:
    int getNCHITTEST( GWin, int, int ) override { return GHIT_TRANSPARENT; }
    void _wait( );
    void _stopWaiting( );
    void _show( );
    void _hide( );
    GRect _place( const GRect& control, int width, int height, const GRect& area ) const;
    void _draw( );

    GInstance* _instance;
    Finder _finder;
    GNodeFont _font;
    GWString _src;
    int _slice = 0;
    int _pad = 0;
    const IGInputHandler* _control = nullptr; // Only ever compared.
    GWString _text;
    bool _dismissed = false;
    int _x = 0;
    int _y = 0;
    uint64_t _since = 0;
    GTimer _timer = nullptr;
    GWin _win = nullptr;
    GRect _rect;
    GString _pixels;
};
