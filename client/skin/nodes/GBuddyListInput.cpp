// The input half of GBuddyListNode.
#include "client/skin/nodes/GBuddyListNode.h"
#include "client/skin/nodes/GNodeKeys.h"

#include <algorithm>

namespace
{
constexpr int REGIONS_PER_BUDDY = 2;
constexpr GWStringView LIST = u"Local_Buddy_List";
} // namespace

// ---- Pointer.

const GBuddyListNode::Region* GBuddyListNode::_getRegion( int x, int y ) const
{
    const auto found = std::ranges::find_if( _regions, [&]( const Region& region )
                                             { return region.rect.contains( x - _originX, y - _originY ); } );
    return found == _regions.end( ) ? nullptr : &*found;
}

GBuddyListNode::Place GBuddyListNode::_getPlace( int x, int y ) const
{
    const Region* region = _getRegion( x, y );
    return region ? Place{ region->guid, region->list } : Place( );
}

void GBuddyListNode::_execute( GWStringView before, const GWString& buddy, GWStringView after )
{
    _commandEngine->executeCommand( GConcat( before, buddy, after ), this );
}

int GBuddyListNode::onMouseMove( GWin, int x, int y )
{
    if( _scroll.isHeld( ) ) return _scroll.drag( y - _originY ) ? GRESPONSE_RENDER : GRESPONSE_NONE;
    const Place place = _getPlace( x, y );
    if( place == _mouseover ) return GRESPONSE_NONE;
    _mouseover = place;
    return GRESPONSE_RENDER;
}

int GBuddyListNode::onMouseoverChanged( bool mouseover )
{
    if( mouseover ) return GRESPONSE_NONE;
    _mouseover = Place( );
    return GRESPONSE_RENDER;
}

int GBuddyListNode::onLButtonDown( GWin, int x, int y )
{
    _clicked = !_focus;
    _byKeyboard = false;
    if( _scroll.press( x - _originX, y - _originY ) ) return GRESPONSE_RENDER | GRESPONSE_CAPTURE;
    const Region* region = _getRegion( x, y );
    _selected = _getPlace( x, y );
    if( region && region->picture && _isOnline( region->guid ) ) _execute( u"(/buddies/", _selected.guid, u"?talk" );
    return GRESPONSE_RENDER;
}

int GBuddyListNode::onLButtonUp( GWin, int, int )
{
    if( !_scroll.isHeld( ) ) return GRESPONSE_RENDER;
    _scroll.release( );
    return GRESPONSE_RENDER | GRESPONSE_RELEASE;
}

int GBuddyListNode::onMouseWheel( GWin, int steps )
{
    return _scroll.turn( steps, _getRowHeight( true ) / 3 ) ? GRESPONSE_RENDER : GRESPONSE_NONE;
}

int GBuddyListNode::onLButtonDblClk( GWin, int x, int y )
{
    const Region* region = _getRegion( x, y );
    if( !region || region->guid.empty( ) || _getPlace( x, y ) != _selected ) return GRESPONSE_NONE;
    const GWString buddy = region->guid;
    if( region->picture )
        _execute( u"(/buddies/", buddy, u"?starttalkhandsfree)" );
    else
        _execute( u"(/skin/foreach_chat/window_", buddy, u"?open" );
    return GRESPONSE_RENDER;
}

int GBuddyListNode::onRButtonDown( GWin, int x, int y )
{
    return _offerMenu( _getPlace( x, y ).guid );
}

int GBuddyListNode::_offerMenu( const GWString& buddy )
{
    if( buddy.empty( ) ) return GRESPONSE_NONE;
    const GWString menu =
        GConcat( u"Talk(/buddies/", buddy, u"?starttalkhandsfree);Call(/buddies/", buddy,
                 u"?call);Chat(/skin/foreach_chat/window_", buddy, u"?open);Send File(/buddies/", buddy,
                 u"?sendfile);Show Screen(/buddies/", buddy, u"?showscreen);Show Window...(/buddies/", buddy,
                 u"?showwindow);Reconnect(/buddies/", buddy, u"?reconnect);Remove(/buddies/", buddy, u"?remove);" );
    _commandEngine->executeCommand( menu, this );
    return GRESPONSE_UPDATE;
}

// ---- Keyboard.

int GBuddyListNode::onKeyboardFocusChanged( bool focus )
{
    _focus = focus;
    _byKeyboard = focus && !_clicked;
    _clicked = false;
    const int stopped = focus ? GRESPONSE_NONE : _stopTalk( );
    return _focusable ? GRESPONSE_RENDER : stopped;
}

// Where that key leads from the selected buddy, brought into view.
int GBuddyListNode::_select( int key )
{
    const RowOrder& rows = _arrange( );
    if( rows.empty( ) ) return GRESPONSE_NONE;
    const auto at = std::ranges::find( rows, _selected.guid, &Row::guid );
    const int number = at == rows.end( ) ? -1 : static_cast<int>( at - rows.begin( ) );
    const int last = static_cast<int>( rows.size( ) ) - 1;
    const int page = std::max( 1, _scroll.getRoom( ) / _getRowHeight( true ) - 1 );
    int to = number;
    switch( key )
    {
    case GKEY_UP: to = number - 1; break;
    case GKEY_DOWN: to = number + 1; break;
    case GKEY_PAGE_UP: to = number - page; break;
    case GKEY_PAGE_DOWN: to = number + page; break;
    case GKEY_HOME: to = 0; break;
    default: to = last; break;
    }
    to = std::clamp( to, 0, last );
    _selected = { rows[static_cast<size_t>( to )]->guid, GWString( LIST ) };
    const int online = static_cast<int>( _onlineCount );
    const int above = std::min( to, online );
    const int top = above * _getRowHeight( true ) + ( to - above ) * _getRowHeight( false );
    _scroll.show( top, top + _getRowHeight( to < online ) );
    return GRESPONSE_RENDER;
}

int GBuddyListNode::onKeyDown( GWin, int key )
{
    if( !_focusable ) return GRESPONSE_NONE;
    _byKeyboard = true;
    switch( key )
    {
    case GKEY_UP:
    case GKEY_DOWN:
    case GKEY_PAGE_UP:
    case GKEY_PAGE_DOWN:
    case GKEY_HOME:
    case GKEY_END: return _select( key );
    case GKEY_SPACE: return _startTalk( );
    case GKEY_MENU: return _offerMenu( GWString( _selected.guid ) );
    case GKEY_F10:
        return GNodeKeys_isDown( GKEY_SHIFT ) ? _offerMenu( GWString( _selected.guid ) ) : int{ GRESPONSE_NONE };
    default: return GRESPONSE_NONE;
    }
}

int GBuddyListNode::onKeyUp( GWin, int key )
{
    return key == GKEY_SPACE ? _stopTalk( ) : GRESPONSE_NONE;
}

// The key repeats while it is held; the talk is one.
int GBuddyListNode::_startTalk( )
{
    if( !_spaceTalk.empty( ) || _selected.guid.empty( ) || !_isOnline( _selected.guid ) ) return GRESPONSE_NONE;
    _spaceTalk = _selected.guid;
    // The plain talk would end with the mouse button, which is not down.
    _execute( u"(/buddies/", GWString( _spaceTalk ), u"?starttalkhandsfree)" );
    return GRESPONSE_RENDER;
}

int GBuddyListNode::_stopTalk( )
{
    if( _spaceTalk.empty( ) ) return GRESPONSE_NONE;
    GWString buddy;
    buddy.swap( _spaceTalk );
    _execute( u"(/buddies/", buddy, u"?stoptalkhandsfree)" );
    return GRESPONSE_RENDER;
}

// Without the keyboard the window hears of no release.
void GBuddyListNode::onShow( GWin win )
{
    if( !win || !GWinHasKeyFocus( win ) ) _stopTalk( );
}

int GBuddyListNode::onKeyPressed( GWin, char16_t character )
{
    if( _focusable && character == GKEY_RETURN && !_selected.guid.empty( ) )
    {
        _execute( u"(/skin/foreach_chat/window_", GWString( _selected.guid ), u"?open" );
        return GRESPONSE_RENDER;
    }
    if( character != GKEY_BACKSPACE || _selected.guid.empty( ) ) return GRESPONSE_NONE;
    const GWString buddy = _selected.guid;
    const auto found = std::ranges::find_if( _regions,
                                             [this]( const Region& region ) {
                                                 return Place{ region.guid, region.list } == _selected;
                                             } );
    if( found != _regions.end( ) && _regions.end( ) - found > REGIONS_PER_BUDDY )
        _selected = { found[REGIONS_PER_BUDDY].guid, found[REGIONS_PER_BUDDY].list };
    else
        _selected = Place( );
    _execute( u"(/buddies/", buddy, u"?remove)" );
    return GRESPONSE_UPDATE;
}
