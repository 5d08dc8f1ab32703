// Controls of the backend without a desktop, for programs that link it: tests answer message boxes and draw the screen with it.
#pragma once

#include "base/GRect.h"
#include "base/GTypes.h"
#include "image/GImageFormat.h"

// Chooses the button of GSystemMessageBox; null restores "the button that closing gives".
using GNullBoxAnswer = int ( * )( const GWString& title, const GWString& text );
void GNullSetBoxAnswer( GNullBoxAnswer answer );

// A window of the drawn screen.
struct GNullWindow
{
    uint32_t id = 0;
    GRect rect;
    GWString title;
    std::vector<GRect> children; // In window coordinates, front first.
};
// What GScreen finds. Change it between calls; there is no lock.
struct GNullScreen
{
    GImageFormat format;              // A raw type with whole bytes a pixel.
    GString pixels;                   // Of the whole screen.
    std::vector<GNullWindow> windows; // Front first. The desktop itself needs none.
    std::vector<GRect> damage;        // What GScreenGetDamage tells next; it empties the list.
    bool tellsDamage = true;
    int pointerX = 0;
    int pointerY = 0;
    uint32_t raised = 0; // The window that was raised last.
    int captures = 0;    // Counts them, failed ones too.
};
// Null, as at the start, is no display. The caller keeps the screen until it is replaced.
void GNullSetScreen( GNullScreen* screen );
