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
const GWString LIST_NAME( LIST );
const GWString TITLE = u"My Buddies";
constexpr GWStringView TALKING_TO_LIST = u"Talking_To_List";
constexpr GWStringView LISTENING_TO_LIST = u"Listening_To_List";
constexpr GWStringView AUDIO_CAPTURE_ONLINE = u"Audio_Capture_Online";
constexpr GWStringView DEFAULT_DOMAIN = u"Default_Domain";
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
    _makeRows( );
    return true;
}

void GBuddyListNode::_makeRows( )
{
    _order.clear( );
    _rows.clear( );
    for( const GWString& buddy : _buddies )
    {
        Row& row = _rows[buddy];
        row.guid = buddy;
        row.image = GConcat( buddy, u"_Image" );
        row.grey = GConcat( buddy, u"_Image_BW" );
        row.online = GConcat( buddy, u"_Online" );
        row.offline = GConcat( buddy, u"_Offline" );
        _order.push_back( &row );
    }
    // Each part of the order is sorted, and nobody is in one yet.
    std::ranges::sort( _order, { }, &Row::guid );
    _onlineCount = 0;
    _nameRows( );
}

void GBuddyListNode::_nameRows( )
{
    for( auto& [buddy, row] : _rows )
    {
        row.name = GUserNameShorten( *_instance, buddy );
        row.waitingName = GConcat( row.name, u"..." );
    }
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

void GBuddyListNode::collectDamage( GSkinDamage& damage ) const
{
    GTemplateNode::collectDamage( damage );
    const auto changed = [&]( GWStringView name ) { return _instance->getTimestamp( name ) >= damage.getSince( ); };
    bool all = changed( TALKING_TO_LIST ) || changed( LISTENING_TO_LIST ) || changed( AUDIO_CAPTURE_ONLINE );
    for( const auto& [buddy, row] : _rows )
    {
        all = all || changed( row.online ) || changed( row.offline );
        if( GRectEmpty( row.rect ) )
        {
            if( changed( row.image ) ) damage.addNothing( );
        }
        else if( _instance->getTimestamp( row.image ) != row.stamp )
            damage.add( row.rect );
    }
    if( all ) damage.add( _drawn );
}

bool GBuddyListNode::_preChildRender( GImageStack& images )
{
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    images.getPosition( _originX, _originY );
    if( width >= 1 && height >= 1 )
    {
        _regionCount = 0;
        _readTalks( );
        if( GNodeTools_readValue( _instance, DEFAULT_DOMAIN, _domain ) ) _nameRows( );
        const int margin = _look.margin;
        _drawList( images, { margin, margin, width - margin, height } );
        _regions.resize( _regionCount );
    }
    images.setInputHandler( this );
    return true;
}

void GBuddyListNode::_readTalks( )
{
    if( GNodeTools_readValue( _instance, TALKING_TO_LIST, _talkText ) ) _talkedTo = GSplitList( _talkText );
    if( GNodeTools_readValue( _instance, LISTENING_TO_LIST, _hearText ) ) _heard = GSplitList( _hearText );
}

// Over what an earlier draw left, so that its texts keep their room.
void GBuddyListNode::_addRegion( const GRect& rect, const GWString& guid, bool isPicture )
{
    if( _regionCount == _regions.size( ) ) _regions.emplace_back( );
    Region& region = _regions[_regionCount++];
    region.rect = rect;
    region.guid = guid;
    region.list = LIST_NAME;
    region.picture = isPicture;
}

void GBuddyListNode::_drawList( GImageStack& images, const GRect& rect )
{
    int titleWidth = 0;
    int titleHeight = 0;
    _titleFont.get( ).measureText( TITLE, titleWidth, titleHeight );
    const GRect title{ rect.left, rect.top, std::max( rect.left, rect.right ), rect.top + titleHeight };
    images.drawText( TITLE, _titleFont, title );
    _addRegion( title, GWString( ), false );
    _drawRows( images, title, rect.bottom );
}

int GBuddyListNode::_getRowHeight( bool online )
{
    GNodeFont& font = online ? _normalFont : _offlineFont;
    return std::max( { font.getHeight( ), _pictureSize, 1 } );
}

// Those on line first, each part sorted; put in order anew only when somebody came or went.
const GBuddyListNode::RowOrder& GBuddyListNode::_arrange( )
{
    bool changed = false;
    for( Row* row : _order )
    {
        const bool online = _instance->test( row->online );
        changed |= online != row->isOnline;
        row->isOnline = online;
    }
    if( !changed ) return _order;
    std::ranges::sort( _order, []( const Row* a, const Row* b )
                       { return a->isOnline != b->isOnline ? a->isOnline : a->guid < b->guid; } );
    _onlineCount = static_cast<size_t>( std::ranges::count( _order, true, &Row::isOnline ) );
    return _order;
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

void GBuddyListNode::_drawRows( GImageStack& images, GRect place, int bottom )
{
    _arrange( );
    _marked = false;
    for( auto& [buddy, row] : _rows ) row.rect = GRect( );

    const int rowHeights[] = { _getRowHeight( false ), _getRowHeight( true ) };
    const int below = _scroll.isOn( ) ? place.bottom : 0;
    const int height = std::max( 0, bottom - place.bottom );
    if( _scroll.isOn( ) )
    {
        const auto content = _onlineCount * static_cast<size_t>( rowHeights[1] ) +
                             ( _order.size( ) - _onlineCount ) * static_cast<size_t>( rowHeights[0] );
        _scroll.layout( static_cast<int>( content ), below, place.right, height );
        images.pushTarget( { 0, below, place.right, below + height } );
        place.right = std::max( place.left, place.right - _scroll.getWidth( ) );
        place.bottom = -_scroll.getOffset( );
    }
    for( Row* row : _order )
    {
        place.top = place.bottom;
        place.bottom = place.top + rowHeights[row->isOnline];
        // What is out of sight takes neither pixels nor clicks.
        if( _scroll.isOn( ) && ( place.bottom <= 0 || place.top >= height ) ) continue;
        _drawBuddy( images, place, *row, below );
    }
    if( _scroll.isOn( ) )
    {
        images.pop( );
        _scroll.draw( images );
    }
    if( _focus && _byKeyboard && !_marked ) images.markFocus( );
}

// Also where only another row is drawn: clicks and the ring must not leave this one.
void GBuddyListNode::_addBuddy( GImageStack& images, const GRect& place, const GRect& picture, Row& row, int below )
{
    for( const bool isPicture : { true, false } )
    {
        GRect region = isPicture ? picture : place;
        region.top = std::max( region.top, _scroll.isOn( ) ? 0 : region.top ) + below;
        region.bottom += below;
        _addRegion( region, row.guid, isPicture );
    }
    int x = 0;
    int y = 0;
    images.getPosition( x, y );
    const GRect shown = GRectIntersect( { picture.left + x, picture.top + y, picture.right + x, picture.bottom + y },
                                        images.getFrame( ) );
    if( GRectHasVolume( shown ) ) row.rect = GRectEmpty( row.rect ) ? shown : GRectUnion( row.rect, shown );
    if( _isAt( _selected, row ) ) _markFocus( images, place );
}

void GBuddyListNode::_drawBuddy( GImageStack& images, const GRect& place, Row& row, int below )
{
    const GRect picture{ place.left, place.top, std::min( place.left + place.height( ), place.right ), place.bottom };
    _addBuddy( images, place, picture, row, below );
    if( !images.isWanted( place ) ) return;
    _drawGround( images, place, row );
    const GRect texts{ std::min( picture.right + _look.textGap, place.right ), place.top, place.right, place.bottom };
    if( images.isWanted( texts ) ) _drawTexts( images, texts, row );
    const GRect inner = inset( picture, _look.picturePad );
    _drawPicture( images, inner, row );
    // What stands around a round picture covers its corners.
    if( _look.corner > 0 && GRectHasVolume( inner ) )
        images.drawRoundRect( picture, _look.corner + _look.picturePad, _look.picturePad,
                              GColorFromText( _getGround( row ) ) );
    _drawFrame( images, place, row.guid );
}

void GBuddyListNode::_drawTexts( GImageStack& images, const GRect& room, const Row& row )
{
    GNodeFont& font = _isAt( _mouseover, row ) ? _mouseoverFont : row.isOnline ? _normalFont : _offlineFont;
    const GWString& note = _getNote( row );
    const int noteHeight = note.empty( ) ? 0 : _noteFont.getHeight( );
    const int lead = std::max( 0, ( room.height( ) - font.getHeight( ) - noteHeight ) / 2 );
    const GWString& name = row.isOnline || _instance->test( row.offline ) ? row.name : row.waitingName;
    images.drawText( name, font, { room.left, room.top + lead, room.right, room.bottom } );
    if( note.empty( ) ) return;
    const int top = std::min( room.top + lead + font.getHeight( ), room.bottom );
    images.drawText( note, _noteFont, { room.left, top, room.right, room.bottom } );
}

void GBuddyListNode::_drawFrame( GImageStack& images, const GRect& place, const GWString& buddy )
{
    const bool talks = _isTalkedTo( buddy );
    if( !talks && ( _look.hearColour.empty( ) || !_isHeard( buddy ) ) ) return;
    const GWString& colour = talks ? _look.talkColour : _look.hearColour;
    if( _look.corner > 0 )
        images.drawRoundRect( place, _look.corner, _look.frameWidth, GColorFromText( colour ) );
    else
        images.drawRect( place, colour );
}

bool GBuddyListNode::_isTalkedTo( const GWString& buddy )
{
    return GListContains( _talkedTo, buddy ) && _instance->test( AUDIO_CAPTURE_ONLINE );
}

bool GBuddyListNode::_isHeard( const GWString& buddy ) const
{
    return GListContains( _heard, buddy );
}

const GWString& GBuddyListNode::_getNote( const Row& row )
{
    if( !_look.talkText.empty( ) && _isTalkedTo( row.guid ) ) return _look.talkText;
    if( !_look.hearText.empty( ) && _isHeard( row.guid ) ) return _look.hearText;
    return row.isOnline ? _look.onlineText : _look.offlineText;
}

bool GBuddyListNode::_isAt( const Place& place, const Row& row )
{
    return place.guid == row.guid && place.list == LIST;
}

GWStringView GBuddyListNode::_getGround( const Row& row ) const
{
    if( _isAt( _selected, row ) ) return _selectedBGColor;
    return _isAt( _mouseover, row ) ? _mouseoverBGColor : _look.groundColour;
}

void GBuddyListNode::_drawGround( GImageStack& images, const GRect& place, const Row& row )
{
    if( !_isAt( _selected, row ) && !_isAt( _mouseover, row ) ) return;
    if( _look.corner > 0 )
    {
        images.fillRoundRect( place, _look.corner, GColorFromText( _getGround( row ) ) );
        return;
    }
    images.fillRect( place, _getGround( row ) );
    images.drawRect( place, FRAME_COLOUR );
}

void GBuddyListNode::_drawPicture( GImageStack& images, const GRect& rect, Row& row )
{
    if( GRectEmpty( rect ) || !images.isWanted( rect ) ) return;
    const bool live = row.isOnline || _isAt( _selected, row );
    // Nobody may write between the draw and the look at the stamp.
    const GObjectLock lock( *_instance );
    if( live ) _drawImage( images, rect, row.image );
    images.pushTarget( rect );
    // One that came after the part to draw was chosen may be drawn in half here: it counts as new until it is drawn whole.
    if( images.isWhole( ) ) row.stamp = _instance->getTimestamp( row.image );
    images.pop( );
    if( live ) return;
    if( !_instance->isSet( row.grey ) ) _makeGrey( row );
    _drawImage( images, rect, row.grey );
}

bool GBuddyListNode::_drawImage( GImageStack& images, const GRect& rect, const GWString& name )
{
    GImageFormat format;
    GRect source;
    // A picture that is not there would be looked for among the files at every draw.
    if( !_instance->isSet( name ) ) return false;
    const char* pixels = GImageTools_instanceReadOpen( _instance, name, format, source );
    if( !pixels ) return false;
    images.drawBitmap( format, pixels, source, rect, GIC_ASPECT );
    GImageTools_instanceReadClose( _instance, name );
    return true;
}

void GBuddyListNode::_makeGrey( const Row& row )
{
    GImageFormat format;
    GRect source;
    if( !_instance->isSet( row.image ) ) return;
    const char* pixels = GImageTools_instanceReadOpen( _instance, row.image, format, source );
    if( !pixels ) return;
    GString grey;
    GImageConvert( format, pixels, GIT_GRAY8, grey );
    GImageTools_instanceReadClose( _instance, row.image );
    format.type = GIT_GRAY8;
    GImageTools_instanceWrite( _instance, row.grey, format, grey );
}

bool GBuddyListNode::_isOnline( const GWString& buddy )
{
    return _instance->test( GConcat( buddy, u"_Online" ) );
}
