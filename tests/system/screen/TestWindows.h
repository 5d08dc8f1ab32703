// Foreign windows of known place and colour on the display that DISPLAY names. They go with the object.
#pragma once

#include "base/GRect.h"

#include <string>
#include <vector>
#include <xcb/xcb.h>

class TestWindows
{
public:
    TestWindows( );
    ~TestWindows( );
    TestWindows( const TestWindows& ) = delete;
    TestWindows& operator=( const TestWindows& ) = delete;

    // Colours are 0xRRGGBB. A window that the window manager frames; its title is UTF-8. Shown at the return.
    xcb_window_t open( const GRect& rect, uint32_t colour, const std::string& title = "" );
    // One that the window manager leaves alone, as menus are: exactly there.
    xcb_window_t openMenu( const GRect& rect, uint32_t colour, int border = 0 );
    // The same with an alpha channel: premultiplied 0xAARRGGBB.
    xcb_window_t openLayered( const GRect& rect, uint32_t colour );
    xcb_window_t openChild( xcb_window_t parent, const GRect& rect, uint32_t colour );
    // One that takes input and shows nothing.
    xcb_window_t openInputOnly( const GRect& rect );

    void setBytes( xcb_window_t window, const char* property, const char* type, const std::string& value );
    void setAtom( xcb_window_t window, const char* property, const char* value );
    void setRootColour( uint32_t colour );
    void hide( xcb_window_t window );
    void minimise( xcb_window_t window );
    void close( xcb_window_t window );
    // All so far has reached the server and was done.
    void sync( );

    xcb_window_t getRoot( ) const { return _screen->root; }
    // The child of the root that the window stands in: its frame, or itself.
    xcb_window_t getTop( xcb_window_t window );
    GRect getTopRect( xcb_window_t window );
    // What the display stores for that colour.
    uint32_t getPixel( uint32_t colour );

private:
    xcb_window_t _create( xcb_window_t parent, const GRect& rect, uint32_t colour, bool isMenu, int border = 0 );
    xcb_atom_t _getAtom( const std::string& name );
    void _show( xcb_window_t window );

    xcb_connection_t* _connection;
    xcb_screen_t* _screen = nullptr;
    std::vector<xcb_window_t> _windows;
};
