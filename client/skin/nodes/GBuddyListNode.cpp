#include "client/skin/nodes/GBuddyListNode.h"

#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"
#include "client/skin/GUserName.h"
#include "image/GImage.h"

#include <algorithm>

namespace
{
constexpr int MARGIN = 6;
constexpr int PICTURE_PAD = 2;
constexpr int TEXT_GAP = 4;
constexpr int MAX_LENGTH = 1000;
constexpr GWStringView LIST = u"Local_Buddy_List";
constexpr GWStringView TALKING_TO_LIST = u"Talking_To_List";
constexpr GWStringView LISTENING_TO_LIST = u"Listening_To_List";
constexpr GWStringView FRAME_COLOUR = u"#000000FF";

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

bool readLength( GAttributeStack& stack, GWStringView expression, int fallback, int& length )
{
    const GWString text = stack.eval( expression );
    const int value = text.empty( ) ? fallback : std::clamp( stack.calc( expression ), 0, MAX_LENGTH );
    const bool changed = value != length;
    length = value;
    return changed;
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
        { u"picturesize", GAttributeKind::number, u"0",
          u"The least height of a row, and the edge of its picture with its padding." },
        { u"margin", GAttributeKind::number, u"6", u"The room around the list." },
        { u"picturepad", GAttributeKind::number, u"2", u"The room around each picture." },
        { u"textgap", GAttributeKind::number, u"4", u"The room between picture and name." },
        { u"corner", GAttributeKind::number, u"0",
          u"The radius of grounds, frames and pictures; the rows have no black frames then." },
        { u"framewidth", GAttributeKind::number, u"1", u"The width of round frames." },
        { u"groundcolor", GAttributeKind::colour, u"",
          u"What the list stands on, which shows at the round corners of pictures." },
        { u"talkcolor", GAttributeKind::colour, u"#FFFF00FF", u"The frame of a buddy who is talked to." },
        { u"hearcolor", GAttributeKind::colour, u"", u"The frame of a buddy who is talking; none when empty." },
        { u"notefont", GAttributeKind::font, u"$offlinefont", u"The second line of a row." },
        { u"onlinetext", GAttributeKind::text, u"", u"The second line of a buddy who is on line." },
        { u"offlinetext", GAttributeKind::text, u"", u"The second line of a buddy who is off line." },
        { u"talktext", GAttributeKind::text, u"", u"The second line of a buddy who is talked to." },
        { u"heartext", GAttributeKind::text, u"", u"The second line of a buddy who is talking." },
        { u"thumbcolor", GAttributeKind::colour, u"",
          u"The rows scroll, with a thumb of this colour, when they do not fit." },
        { u"thumbwidth", GAttributeKind::number, u"6", u"The width of that." },
        { u"focusable", GAttributeKind::toggle, u"off",
          u"The tab key stops here: arrows select, return opens the chat, the space key talks while it is held, the "
          u"menu key "
          u"offers what can be done." },
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
    changed |= _readLook( stack );
    const bool hears = !_look.hearColour.empty( ) || !_look.hearText.empty( );
    _hearWatch.update( _instance, hears ? LISTENING_TO_LIST : GWStringView( ), _listener );
    return changed;
}

bool GBuddyListNode::_readLook( GAttributeStack& stack )
{
    bool changed = readLength( stack, u"$margin", MARGIN, _look.margin );
    changed |= readLength( stack, u"$picturepad", PICTURE_PAD, _look.picturePad );
    changed |= readLength( stack, u"$textgap", TEXT_GAP, _look.textGap );
    changed |= readLength( stack, u"$corner", 0, _look.corner );
    changed |= readLength( stack, u"$framewidth", 1, _look.frameWidth );
    changed |= stack.read( u"$groundcolor", _look.groundColour );
    changed |= GNodeTools_readOr( stack, u"$talkcolor", u"#FFFF00FF", _look.talkColour );
    changed |= stack.read( u"$hearcolor", _look.hearColour );
    changed |= _noteFont.read( stack, u"$notefont", _offlineFont );
    changed |= stack.read( u"$onlinetext", _look.onlineText );
    changed |= stack.read( u"$offlinetext", _look.offlineText );
    changed |= stack.read( u"$talktext", _look.talkText );
    changed |= stack.read( u"$heartext", _look.hearText );
    changed |= _scroll.read( stack );
    changed |= stack.read( u"$focusable", _focusable );
    return changed;
}

bool GBuddyListNode::_updateList( )
{
    if( !GNodeTools_readValue( _instance, LIST, _buddyListText ) ) return false;
    _buddies = parseBuddies( _buddyListText );
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
    width = std::max( width, 2 * _look.margin + row );
    height = std::max( height, _look.margin + _titleFont.getHeight( ) + row );
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
        const int margin = _look.margin;
        _drawList( images, { margin, margin, width - margin, height }, GWString( LIST ), u"My Buddies" );
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

    _drawRows( images, row, list, rect.bottom );
}

int GBuddyListNode::_getRowHeight( bool online )
{
    GNodeFont& font = online ? _normalFont : _offlineFont;
    return std::max( { font.getHeight( ), _pictureSize, 1 } );
}

// Those on line first, each part sorted.
void GBuddyListNode::_arrange( GStringVector& buddies, size_t& online )
{
    buddies.assign( _buddies.begin( ), _buddies.end( ) );
    const auto offline = std::stable_partition( buddies.begin( ), buddies.end( ),
                                                [this]( const GWString& buddy ) { return _isOnline( buddy ); } );
    std::sort( buddies.begin( ), offline );
    std::sort( offline, buddies.end( ) );
    online = static_cast<size_t>( offline - buddies.begin( ) );
}

// The ring goes around the selected row, or around all while it does not show.
void GBuddyListNode::_markFocus( GImageStack& images, const GRect& row )
{
    if( !_focus || !_byKeyboard || !GRectHasVolume( row ) ) return;
    images.pushTarget( row );
    images.markFocus( );
    images.pop( );
    _marked = true;
}

void GBuddyListNode::_drawRows( GImageStack& images, GRect row, const GWString& list, int bottom )
{
    GStringVector buddies;
    size_t onlineCount = 0;
    _arrange( buddies, onlineCount );
    const auto offline = buddies.begin( ) + static_cast<ptrdiff_t>( onlineCount );
    _marked = false;

    const int below = _scroll.isOn( ) ? row.bottom : 0;
    const int height = std::max( 0, bottom - row.bottom );
    if( _scroll.isOn( ) )
    {
        const auto content = ( offline - buddies.begin( ) ) * _getRowHeight( true ) +
                             ( buddies.end( ) - offline ) * _getRowHeight( false );
        _scroll.layout( static_cast<int>( content ), below, row.right, height );
        images.pushTarget( { 0, below, row.right, below + height } );
        row.right = std::max( row.left, row.right - _scroll.getWidth( ) );
        row.bottom = -_scroll.getOffset( );
    }
    for( auto buddy = buddies.begin( ); buddy != buddies.end( ); ++buddy )
    {
        const bool online = buddy < offline;
        row.top = row.bottom;
        row.bottom = row.top + _getRowHeight( online );
        // What is out of sight takes neither pixels nor clicks.
        if( _scroll.isOn( ) && ( row.bottom <= 0 || row.top >= height ) ) continue;
        _drawBuddy( images, row, { *buddy, list }, online, below );
    }
    if( _scroll.isOn( ) )
    {
        images.pop( );
        _scroll.draw( images );
    }
    if( _focus && _byKeyboard && !_marked ) images.markFocus( );
}

void GBuddyListNode::_drawBuddy( GImageStack& images, const GRect& row, const Place& place, bool online, int below )
{
    const GRect picture{ row.left, row.top, std::min( row.left + row.height( ), row.right ), row.bottom };
    for( const bool isPicture : { true, false } )
    {
        GRect region = isPicture ? picture : row;
        region.top = std::max( region.top, _scroll.isOn( ) ? 0 : region.top ) + below;
        region.bottom += below;
        _regions.push_back( { region, place.guid, place.list, isPicture } );
    }
    _drawGround( images, row, place );
    _drawTexts( images, { std::min( picture.right + _look.textGap, row.right ), row.top, row.right, row.bottom }, place,
                online );
    const GRect inner = inset( picture, _look.picturePad );
    _drawPicture( images, inner, place.guid, online || place == _selected );
    // What stands around a round picture covers its corners.
    if( _look.corner > 0 && GRectHasVolume( inner ) )
        images.drawRoundRect( picture, _look.corner + _look.picturePad, _look.picturePad,
                              GColorFromText( _getGround( place ) ) );
    _drawFrame( images, row, place.guid );
    if( place == _selected ) _markFocus( images, row );
}

void GBuddyListNode::_drawTexts( GImageStack& images, const GRect& room, const Place& place, bool online )
{
    GNodeFont& font = place == _mouseover ? _mouseoverFont : online ? _normalFont : _offlineFont;
    const GWString& note = _getNote( place.guid );
    const int noteHeight = note.empty( ) ? 0 : _noteFont.getHeight( );
    const int lead = std::max( 0, ( room.height( ) - font.getHeight( ) - noteHeight ) / 2 );
    images.drawText( _getText( place.guid ), font, { room.left, room.top + lead, room.right, room.bottom } );
    if( note.empty( ) ) return;
    const int top = std::min( room.top + lead + font.getHeight( ), room.bottom );
    images.drawText( note, _noteFont, { room.left, top, room.right, room.bottom } );
}

void GBuddyListNode::_drawFrame( GImageStack& images, const GRect& row, const GWString& buddy )
{
    const bool talks = _isTalkedTo( buddy );
    if( !talks && ( _look.hearColour.empty( ) || !_isHeard( buddy ) ) ) return;
    const GWString& colour = talks ? _look.talkColour : _look.hearColour;
    if( _look.corner > 0 )
        images.drawRoundRect( row, _look.corner, _look.frameWidth, GColorFromText( colour ) );
    else
        images.drawRect( row, colour );
}

bool GBuddyListNode::_isTalkedTo( const GWString& buddy )
{
    return _instance->contains( TALKING_TO_LIST, buddy ) && _instance->test( u"Audio_Capture_Online" );
}

bool GBuddyListNode::_isHeard( const GWString& buddy )
{
    return _instance->contains( LISTENING_TO_LIST, buddy );
}

const GWString& GBuddyListNode::_getNote( const GWString& buddy )
{
    if( !_look.talkText.empty( ) && _isTalkedTo( buddy ) ) return _look.talkText;
    if( !_look.hearText.empty( ) && _isHeard( buddy ) ) return _look.hearText;
    return _isOnline( buddy ) ? _look.onlineText : _look.offlineText;
}

GWStringView GBuddyListNode::_getGround( const Place& place ) const
{
    if( place == _selected ) return _selectedBGColor;
    return place == _mouseover ? _mouseoverBGColor : _look.groundColour;
}

void GBuddyListNode::_drawGround( GImageStack& images, const GRect& row, const Place& place )
{
    if( place != _selected && place != _mouseover ) return;
    if( _look.corner > 0 )
    {
        images.fillRoundRect( row, _look.corner, GColorFromText( _getGround( place ) ) );
        return;
    }
    images.fillRect( row, _getGround( place ) );
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
