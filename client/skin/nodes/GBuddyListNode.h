// Draws the buddies with their live pictures, those on line first, and talks to the one whose picture is held down. Presence and
// pictures come from the blackboard; a new picture repaints the window without an update pass. With "$thumbcolor" the rows scroll,
// with "$corner" grounds, frames and pictures are round, and the texts of the states make a second line; with
// "$focusable" the keyboard reaches them: arrows select, return opens the chat, the held space key talks. User-interface thread.
#pragma once

#include "base/GRect.h"
#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "client/skin/nodes/GNodeScroll.h"
#include "client/skin/nodes/GNodeTools.h"

#include <map>

class GBuddyListNode : public GTemplateNode, public IGInputHandler
{
public:
    // One of two places of a buddy, or the title's with an empty GUID; in coordinates of the node's frame.
    struct Region
    {
        GRect rect;
        GWString guid;
        GWString list;
        bool picture = false;
    };

    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    ~GBuddyListNode( ) override;
    void calcMinSize( int& width, int& height ) override;
    void collectDamage( GSkinDamage& damage ) const override;

    // Of the last draw, in drawing order.
    const std::vector<Region>& getRegions( ) const { return _regions; }
    // Empty when none is.
    const GWString& getSelected( ) const { return _selected.guid; }
    const GWString& getMouseover( ) const { return _mouseover.guid; }

    bool wantsKeyboardFocus( ) override { return _focusable; }
    int onKeyboardFocusChanged( bool focus ) override;
    int onKeyDown( GWin win, int key ) override;
    int onKeyUp( GWin win, int key ) override;
    void onShow( GWin win ) override;
    int onMouseoverChanged( bool mouseover ) override;
    int onMouseMove( GWin win, int x, int y ) override;
    int onLButtonDown( GWin win, int x, int y ) override;
    int onLButtonUp( GWin win, int x, int y ) override;
    int onLButtonDblClk( GWin win, int x, int y ) override;
    int onRButtonDown( GWin win, int x, int y ) override;
    int onKeyPressed( GWin win, char16_t character ) override;
    int onMouseWheel( GWin win, int steps ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    // A buddy in a list, as it was clicked or pointed at.
    struct Place
    {
        GWString guid;
        GWString list;
        friend bool operator==( const Place&, const Place& ) = default;
    };

    // What the skin may add to the plain look; lengths in pixels.
    struct Look
    {
        int margin = 0;
        int picturePad = 0; // Between the row's edges and the picture.
        int textGap = 0;
        int corner = 0;
        int frameWidth = 0;
        GWString groundColour; // What the list stands on, for the corners of pictures.
        GWString talkColour;
        GWString hearColour;
        // The second line in each state; none when empty.
        GWString onlineText;
        GWString offlineText;
        GWString talkText;
        GWString hearText;
    };

    // What a row needs at every draw: texts and names of values are made once.
    struct Row
    {
        GWString guid;
        GWString name;        // As people read it,
        GWString waitingName; // and while nobody has said yet whether he is there.
        GWString image;
        GWString grey;
        GWString online;
        GWString offline;
        bool isOnline = false; // When the rows were put in order.
        GRect rect;            // Of the picture, in the layer; empty when it was out of sight.
        uint64_t stamp = 0;    // Of the picture that was drawn. Reading stamps a value anew.
    };
    using RowOrder = std::vector<Row*>;

    bool _readLook( GAttributeStack& stack );
    int _getRowHeight( bool online );
    GWStringView _getGround( const Row& row ) const;
    bool _isTalkedTo( const GWString& buddy );
    bool _isHeard( const GWString& buddy ) const;
    const GWString& _getNote( const Row& row );
    static bool _isAt( const Place& place, const Row& row );
    // Keyboard; numbers count in drawing order.
    const RowOrder& _arrange( );
    int _select( int key );
    int _startTalk( );
    int _stopTalk( );
    int _offerMenu( const GWString& buddy );
    void _markFocus( GImageStack& images, const GRect& row );

    bool _updateList( );
    void _addWatches( );
    void _removeWatches( );
    void _watchBuddy( const GWString& buddy, bool watch );
    void _makeRows( );
    void _nameRows( );
    void _readTalks( );
    void _addRegion( const GRect& rect, const GWString& guid, bool isPicture );
    void _drawList( GImageStack& images, const GRect& rect );
    void _drawRows( GImageStack& images, GRect place, int bottom );
    // `below` is where the rows' coordinates begin in the node's frame.
    void _drawBuddy( GImageStack& images, const GRect& place, Row& row, int below );
    void _addBuddy( GImageStack& images, const GRect& place, const GRect& picture, Row& row, int below );
    void _drawGround( GImageStack& images, const GRect& place, const Row& row );
    void _drawTexts( GImageStack& images, const GRect& room, const Row& row );
    void _drawFrame( GImageStack& images, const GRect& place, const GWString& buddy );
    void _drawPicture( GImageStack& images, const GRect& rect, Row& row );
    bool _drawImage( GImageStack& images, const GRect& rect, const GWString& name );
    void _makeGrey( const Row& row );
    bool _isOnline( const GWString& buddy );
    const Region* _getRegion( int x, int y ) const;
    Place _getPlace( int x, int y ) const;
    void _execute( GWStringView before, const GWString& buddy, GWStringView after );

    GNodeFont _titleFont;
    GNodeFont _normalFont;
    GNodeFont _mouseoverFont;
    GNodeFont _offlineFont;
    GWString _selectedBGColor;
    GWString _mouseoverBGColor;
    int _pictureSize = 0; // Rows are at least this high; 0 for the height of the font.
    GNodeFont _noteFont;
    Look _look;
    GNodeScroll _scroll;
    bool _focusable = false;
    bool _focus = false;
    bool _clicked = false;    // The focus that comes was given by the mouse.
    bool _byKeyboard = false; // The ring marks what the keys reach.
    bool _marked = false;     // In this drawing.
    GWString _spaceTalk;      // Whom the held space key talks to.
    GWString _buddyListText;
    GStringList _buddies;
    GStringList _watched;
    std::map<GWString, Row> _rows; // By GUID.
    RowOrder _order;               // As they are drawn; one that stands in the list twice is there twice.
    size_t _onlineCount = 0;       // Of these.
    GWString _domain;              // That the names were made with.
    GWString _talkText;
    GWString _hearText;
    GStringList _talkedTo;
    GStringList _heard;
    std::vector<Region> _regions; // Used again by every draw.
    size_t _regionCount = 0;
    Place _selected;
    Place _mouseover;
    int _originX = 0;
    int _originY = 0;
    GNotifyHandle _listener = nullptr;
    GNodeWatch _listWatch{ GWATCH_UPDATE };
    GNodeWatch _talkWatch{ GWATCH_RENDER };
    GNodeWatch _hearWatch{ GWATCH_RENDER };
};
