// What was drawn on the desktop since the last ask, as the server keeps account of it.
#pragma once

#include "base/GRect.h"
#include "platform/screen/GScreenConnection.h"

#include <vector>
#include <xcb/damage.h>
#include <xcb/xfixes.h>

class GScreenDamage
{
public:
    // The connection outlives the account.
    explicit GScreenDamage( GScreenConnection& connection ) : _connection( connection ) {}

    // As GScreenGetDamage and GScreenWaitForDamage.
    bool take( std::vector<GRect>& rects );
    bool wait( int64_t microseconds );

private:
    bool _isWatching( ) const;
    bool _startWatching( );
    bool _watch( );
    bool _readSize( );
    bool _readEvents( );
    bool _fetch( std::vector<GRect>& rects );

    GScreenConnection& _connection;
    unsigned _generation = 0; // Of the connection that the account was opened on; 0 for none.
    xcb_damage_damage_t _damage = 0;
    xcb_xfixes_region_t _region = 0;
    uint8_t _event = 0;
    unsigned _sizeChanges = 0; // Of the connection, as last looked at.
    bool _isAllNew = false;    // The next ask gives the whole desktop.
    bool _isDamaged = false;
    GRect _desktop;
};
