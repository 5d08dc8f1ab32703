#include "client/skin/nodes/GBuddyListNode.h"

#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"
#include "client/skin/GUserName.h"
#include "image/GImage.h"

#include <algorithm>

namespace
{
constexpr int MARGIN = 6;
constexpr int PICTURE_INSET = 2;
constexpr int TEXT_GAP = 4;
constexpr int BACKSPACE = 8;
constexpr int REGIONS_PER_BUDDY = 2;
constexpr GWStringView LIST = u"Local_Buddy_List";
constexpr GWStringView TALKING_TO_LIST = u"Talking_To_List";
constexpr GWStringView FRAME_COLOUR = u"#000000FF";
constexpr GWStringView TALK_COLOUR = u"#FFFF00FF";

// The entries that names and commands may be made from.
GStringList parseBuddies( const GWString& text )
{
    GStringList buddies = GSplitList( text );
    buddies.remove_if(
        []( const GWString& buddy )
        {
            if( GUserNameIsSafe( buddy ) ) return false;
            GLOG( u"WARNING Invalid buddy '", buddy, u"' in the list, ignoring." );
            return true;
        } );
    return buddies;
}

GRect inset( const GRect& rect, int by )
{
    return { rect.left + by, rect.top + by, rect.right - by, rect.bottom - by };
}
} // namespace

GAttributeTable GBuddyListNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"titlefont", GAttributeKind::font, u"", u"The title \"My Buddies\"." },
        { u"normalfont", GAttributeKind::font, u"", u"A buddy who is on line." },
        { u"mouseoverfont", GAttributeKind::font, u"$normalfont", u"The buddy under the pointer." },
        { u"offlinefont", GAttributeKind::font, u"$normalfont", u"A buddy who is off line." },
        { u"selectedbgcolor", GAttributeKind::colour, u"#ECE9D8", u"The ground of the selected row." },
        { u"mouseoverbgcolor", GAttributeKind::colour, u"#C1D2EE", u"The ground of the row under the pointer." },
        { u"picturesize", GAttributeKind::number, u"0", u"The edge of the pictures; 0 for as high as the text." },
    };
    return ROWS;
}

GBuddyListNode::~GBuddyListNode( )
{
    _buddies.clear( );
    _removeWatches( );
}

// ---- Update.

bool GBuddyListNode::_postChildUpdate( GAttributeStack& stack )
{
    _listener = stack.getListener( );
    bool changed = _updateList( );
    _listWatch.update( _instance, LIST, _listener );
    _talkWatch.update( _instance, TALKING_TO_LIST, _listener );
    changed |= _titleFont.read( stack, u"$titlefont" );
    changed |= _normalFont.read( stack, u"$normalfont" );
    changed |= _mouseoverFont.read( stack, u"$mouseoverfont", _normalFont );
    changed |= _offlineFont.read( stack, u"$offlinefont", _normalFont );
    changed |= GNodeTools_readOr( stack, u"$selectedBGColor", u"#ECE9D8", _selectedBGColor );
    changed |= GNodeTools_readOr( stack, u"$mouseoverBGColor", u"#C1D2EE", _mouseoverBGColor );
    changed |= stack.read( u"$picturesize", _pictureSize );
    return changed;
}

bool GBuddyListNode::_updateList( )
{
    const GWString text = _instance->get( LIST );
    if( text == _buddyListText ) return false;
    _buddyListText = text;
    _buddies = parseBuddies( text );
    _addWatches( );
    _removeWatches( );
    return true;
}

void GBuddyListNode::_addWatches( )
{
    for( const GWString& buddy : _buddies )
    {
        if( GListContains( _watched, buddy ) ) continue;
        _watchBuddy( buddy, true );
        _watched.push_back( buddy );
    }
}

void GBuddyListNode::_removeWatches( )
{
    _watched.remove_if(
        [this]( const GWString& buddy )
        {
            if( GListContains( _buddies, buddy ) ) return false;
            _watchBuddy( buddy, false );
            return true;
        } );
}

void GBuddyListNode::_watchBuddy( const GWString& buddy, bool watch )
{
    for( const GWStringView suffix : { u"_Image", u"_Online", u"_Offline" } )
        if( watch )
            _instance->watch( GConcat( buddy, suffix ), _listener, GWATCH_RENDER );
        else
            _instance->unwatch( GConcat( buddy, suffix ), _listener, GWATCH_RENDER );
}

void GBuddyListNode::calcMinSize( int& width, int& height )
{
    GTemplateNode::calcMinSize( width, height );
    const int row = std::max( { _normalFont.getHeight( ), _offlineFont.getHeight( ), _mouseoverFont.getHeight( ) } );
    width = std::max( width, 2 * MARGIN + row );
    height = std::max( height, MARGIN + _titleFont.getHeight( ) + row );
}

// ---- Drawing.

bool GBuddyListNode::_preChildRender( GImageStack& images )
{
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    images.getPosition( _originX, _originY );
    if( width >= 1 && height >= 1 )
    {
        _regions.clear( );
        _drawList( images, { MARGIN, MARGIN, width - MARGIN, height }, GWString( LIST ), u"My Buddies" );
    }
    images.setInputHandler( this );
    return true;
}

void GBuddyListNode::_drawList( GImageStack& images, const GRect& rect, const GWString& list, const GWString& title )
{
    int titleWidth = 0;
    int titleHeight = 0;
    _titleFont.get( ).measureText( title, titleWidth, titleHeight );
    GRect row{ rect.left, rect.top, std::max( rect.left, rect.right ), rect.top + titleHeight };
    images.drawText( title, _titleFont, row );
    _regions.push_back( { row, GWString( ), list, false } );

    GStringVector buddies( _buddies.begin( ), _buddies.end( ) );
    const auto offline = std::stable_partition( buddies.begin( ), buddies.end( ),
                                                [this]( const GWString& buddy ) { return _isOnline( buddy ); } );
    std::sort( buddies.begin( ), offline );
    std::sort( offline, buddies.end( ) );
    for( auto buddy = buddies.begin( ); buddy != buddies.end( ); ++buddy )
    {
        const bool online = buddy < offline;
        GNodeFont& font = online ? _normalFont : _offlineFont;
        row.top = row.bottom;
        row.bottom = row.top + std::max( { font.getHeight( ), _pictureSize, 1 } );
        _drawBuddy( images, row, { *buddy, list }, online );
    }
}

void GBuddyListNode::_drawBuddy( GImageStack& images, const GRect& row, const Place& place, bool online )
{
    const GRect picture{ row.left, row.top, std::min( row.left + row.height( ), row.right ), row.bottom };
    _regions.push_back( { picture, place.guid, place.list, true } );
    _regions.push_back( { row, place.guid, place.list, false } );
    _drawGround( images, row, place );

    GNodeFont& font = place == _mouseover ? _mouseoverFont : online ? _normalFont : _offlineFont;
    const int lead = std::max( 0, ( row.height( ) - font.getHeight( ) ) / 2 );
    const int left = std::min( picture.right + TEXT_GAP, row.right );
    images.drawText( _getText( place.guid ), font, { left, row.top + lead, row.right, row.bottom } );
    _drawPicture( images, inset( picture, PICTURE_INSET ), place.guid, online || place == _selected );

    if( _instance->contains( TALKING_TO_LIST, place.guid ) && _instance->test( u"Audio_Capture_Online" ) )
        images.drawRect( row, TALK_COLOUR );
}

void GBuddyListNode::_drawGround( GImageStack& images, const GRect& row, const Place& place )
{
    if( place != _selected && place != _mouseover ) return;
    images.fillRect( row, place == _selected ? _selectedBGColor : _mouseoverBGColor );
    images.drawRect( row, FRAME_COLOUR );
}

void GBuddyListNode::_drawPicture( GImageStack& images, const GRect& rect, const GWString& buddy, bool live )
{
    if( GRectEmpty( rect ) ) return;
    if( live )
    {
        _drawImage( images, rect, GConcat( buddy, u"_Image" ) );
        return;
    }
    const GWString grey = GConcat( buddy, u"_Image_BW" );
    if( !_instance->isSet( grey ) ) _makeGrey( buddy );
    _drawImage( images, rect, grey );
}

bool GBuddyListNode::_drawImage( GImageStack& images, const GRect& rect, const GWString& name )
{
    GImageFormat format;
    GRect source;
    const char* pixels = GImageTools_instanceReadOpen( _instance, name, format, source );
    if( !pixels ) return false;
    images.drawBitmap( format, pixels, source, rect, GIC_ASPECT );
    GImageTools_instanceReadClose( _instance, name );
    return true;
}

void GBuddyListNode::_makeGrey( const GWString& buddy )
{
    const GWString name = GConcat( buddy, u"_Image" );
    GImageFormat format;
    GRect source;
    const char* pixels = GImageTools_instanceReadOpen( _instance, name, format, source );
    if( !pixels ) return;
    GString grey;
    GImageConvert( format, pixels, GIT_GRAY8, grey );
    GImageTools_instanceReadClose( _instance, name );
    format.type = GIT_GRAY8;
    GImageTools_instanceWrite( _instance, GConcat( buddy, u"_Image_BW" ), format, grey );
}

GWString GBuddyListNode::_getText( const GWString& buddy )
{
    GWString text = GUserNameShorten( *_instance, buddy );
    // Nobody has said yet whether he is there.
    if( !_isOnline( buddy ) && !_instance->test( GConcat( buddy, u"_Offline" ) ) ) text += u"...";
    return text;
}

bool GBuddyListNode::_isOnline( const GWString& buddy )
{
    return _instance->test( GConcat( buddy, u"_Online" ) );
}

// ---- Input.

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
    const Region* region = _getRegion( x, y );
    _selected = _getPlace( x, y );
    if( region && region->picture && _isOnline( region->guid ) ) _execute( u"(/buddies/", _selected.guid, u"?talk" );
    return GRESPONSE_RENDER;
}

int GBuddyListNode::onLButtonUp( GWin, int, int )
{
    return GRESPONSE_RENDER;
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
    const GWString buddy = _getPlace( x, y ).guid;
    if( buddy.empty( ) ) return GRESPONSE_NONE;
    const GWString menu =
        GConcat( u"Talk(/buddies/", buddy, u"?starttalkhandsfree);Call(/buddies/", buddy,
                 u"?call);Chat(/skin/foreach_chat/window_", buddy, u"?open);Send File(/buddies/", buddy,
                 u"?sendfile);Show Screen(/buddies/", buddy, u"?showscreen);Show Window...(/buddies/", buddy,
                 u"?showwindow);Reconnect(/buddies/", buddy, u"?reconnect);Remove(/buddies/", buddy, u"?remove);" );
    _commandEngine->executeCommand( menu, this );
    return GRESPONSE_UPDATE;
}

int GBuddyListNode::onKeyPressed( GWin, char16_t character )
{
    if( character != BACKSPACE || _selected.guid.empty( ) ) return GRESPONSE_NONE;
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
