// Reads the windows of the desktop from the server's tree and the window manager's list. Each step asks about all windows before it
// reads the first answer, so the cost is a handful of round trips however many there are. A window that vanishes meanwhile is left
// out. The connection must be open; a tree is read once and thrown away.
#pragma once

#include "platform/common/GScreenBackend.h"
#include "platform/screen/GScreenConnection.h"

class GScreenTree
{
public:
    explicit GScreenTree( GScreenConnection& connection ) : _connection( connection ) {}

    // The desktop's size and its shown windows, front first, the root window last. False without a server.
    bool read( );
    int getWidth( ) const { return _width; }
    int getHeight( ) const { return _height; }

    // After read.
    void getWindows( std::vector<GScreenWindow>& windows );
    void getTitles( std::vector<GScreenTitle>& titles );

    // The program's own window inside one that the window manager has put around it, or the window itself. 0 when `window` is not on
    // the desktop. Needs no read.
    xcb_window_t findClient( xcb_window_t window );

private:
    // A child of the root window.
    struct Top
    {
        xcb_window_t window = 0;
        xcb_window_t client = 0; // The program's own window.
        bool isManaged = true;   // The window manager was asked before it was shown.
        GRect rect;
    };
    using Windows = std::vector<xcb_window_t>;

    bool _readRoot( );
    void _takeClients( const xcb_get_property_reply_t* list );
    void _readTops( );
    void _findClients( );
    void _findListedClients( );
    void _findMarkedClients( );
    Windows _findMarked( const Windows& windows );
    Windows _getChildren( xcb_query_tree_cookie_t asked, size_t most, xcb_window_t* parent = nullptr );
    void _readChildren( const std::vector<Windows>& children, const std::vector<GRect>& contents,
                        std::vector<GScreenWindow>& windows );

    GScreenConnection& _connection;
    int _width = 0;
    int _height = 0;
    std::vector<Top> _tops;
    Windows _clients; // Of the window manager's list.
};
