#include "client/skin/nodes/GImageNode.h"

#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"
#include "client/skin/nodes/GWindowNode.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace
{
// How pale a breath becomes, of 1.
constexpr double PALEST = 0.35;

// The share of its opacity that a breathing picture has now, of 256.
int getBreath( int milliseconds )
{
    const uint64_t period = static_cast<uint64_t>( milliseconds ) * 1000;
    const double phase = static_cast<double>( GTimeGetTime( ) % period ) / static_cast<double>( period );
    const double height = 0.5 + 0.5 * std::cos( 2 * std::numbers::pi * phase );
    return static_cast<int>( 256 * ( PALEST + ( 1 - PALEST ) * height ) );
}
} // namespace

GAttributeTable GImageNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"src", GAttributeKind::image, u"",
          u"The picture: a file, or an image on the blackboard, which repaints when it changes." },
        { u"x", GAttributeKind::number, u"0", u"Moves the picture to the right." },
        { u"y", GAttributeKind::number, u"0", u"Moves the picture down." },
        { u"align", GAttributeKind::choice, u"left",
          u"`left`, `center`, `right`, `stretch`, `tile`, or `fit`, which keeps the aspect ratio." },
        { u"valign", GAttributeKind::choice, u"top", u"`top`, `center`, `bottom`, `stretch`, `tile`." },
        { u"mode", GAttributeKind::choice, u"",
          u"`copy` replaces what is below it, with its alpha, instead of blending." },
        { u"slice", GAttributeKind::number, u"0",
          u"Fills the frame in nine pieces: corners of that many pixels keep their size." },
        { u"disabled", GAttributeKind::toggle, u"off", u"Stops following a blackboard image; the last picture stays." },
        { u"breathe", GAttributeKind::number, u"0",
          u"Milliseconds in which a picture with alpha grows paler and comes back, again and again while it is drawn; "
          u"0 for never." },
    };
    return ROWS;
}

bool GImageNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = stack.read( u"$x", _x );
    changed |= stack.read( u"$y", _y );
    changed |= stack.read( u"$src", _src );
    changed |= stack.read( u"$disabled", _disabled );
    changed |= GNodeTools_readAlign( stack, _flags );
    changed |= stack.read( u"$slice", _slice );
    changed |= stack.read( u"$mode", _mode );
    // Of this node alone: what stands in a breathing thing is still.
    changed |= stack.read( getAttribute( u"breathe" ), _breathe );
    if( GCaseEquals( _mode, u"copy" ) ) _flags |= GIC_OPAQUE;
    _watch.update( _instance, _disabled ? GWStringView( ) : GNodeTools_imageName( _src ), stack.getListener( ) );
    return changed;
}

void GImageNode::calcMinSize( int& width, int& height )
{
    GTemplateNode::calcMinSize( width, height );
    GImageFormat format;
    GRect rect;
    if( _src.empty( ) || !_check( format, rect ) ) return;
    width = std::max( width, rect.width( ) );
    height = std::max( height, rect.height( ) );
}

void GImageNode::collectDamage( GSkinDamage& damage ) const
{
    GTemplateNode::collectDamage( damage );
    if( _breathe > 0 ) damage.addMoving( _drawn );
    const GWString& name = _watch.getName( );
    if( name.empty( ) || _instance->getTimestamp( name ) == _stamp ) return;
    // A picture of another size may move what stands beside it.
    GImageFormat format;
    GRect rect;
    const bool same = _check( format, rect ) && rect == _sourceRect;
    same ? damage.add( _drawn ) : damage.addAll( );
}

bool GImageNode::_check( GImageFormat& format, GRect& rect ) const
{
    const GObjectLock lock( *_instance );
    const GWString& name = _watch.getName( );
    const bool isDrawn = !name.empty( ) && _instance->getTimestamp( name ) == _stamp;
    const bool good = GImageTools_instanceReadCheck( _instance, _src, format, rect );
    if( isDrawn ) _stamp = _instance->getTimestamp( name );
    return good;
}

bool GImageNode::_preChildRender( GImageStack& images )
{
    const GObjectLock lock( *_instance );
    _draw( images );
    // A picture that came after the part to draw was chosen may be drawn in half here: it counts as new until it is drawn whole.
    if( images.isWhole( ) && !_watch.getName( ).empty( ) ) _stamp = _instance->getTimestamp( _watch.getName( ) );
    return true;
}

void GImageNode::_draw( GImageStack& images )
{
    GImageFormat format;
    GRect rect;
    const char* pixels = _src.empty( ) ? nullptr : GImageTools_instanceReadOpen( _instance, _src, format, rect );
    _sourceRect = rect;
    if( !pixels ) return;
    if( _breathe > 0 ) pixels = _fade( format, pixels, rect );
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    constexpr int FARTHEST = 1 << 20;
    const int x = std::clamp( _x, -FARTHEST, FARTHEST ), y = std::clamp( _y, -FARTHEST, FARTHEST );
    GRect target{ x, y, x + width, y + height };
    if( _slice > 0 )
    {
        GNodeTools_drawSliced( images, format, pixels, rect, target, _slice );
        GImageTools_instanceReadClose( _instance, _src );
        return;
    }
    // A picture smaller than its frame stands where the alignment says; a larger one is cut there by the copy.
    if( !( _flags & ( GIC_STRETCH_X | GIC_TILE_X | GIC_ASPECT ) ) )
        target.left += GNodeTools_offset( width, rect.width( ), _flags & GIC_CENTER, _flags & GIC_RIGHT );
    if( !( _flags & ( GIC_STRETCH_Y | GIC_TILE_Y | GIC_ASPECT ) ) )
        target.top += GNodeTools_offset( height, rect.height( ), _flags & GIC_MIDDLE, _flags & GIC_BOTTOM );
    images.drawBitmap( format, pixels, rect, target, _flags );
    GImageTools_instanceReadClose( _instance, _src );
}

// The part that is drawn, with a part of its opacity, in a buffer of this node's own. Pictures without alpha stay as they are.
const char* GImageNode::_fade( GImageFormat& format, const char* pixels, GRect& rect )
{
    for( GTemplateNode* node = _parent; node; node = node->getParent( ) )
        if( auto* window = dynamic_cast<GWindowNode*>( node ) ) window->keepMoving( );
    if( format.type != GIT_RGBA32 || GRectEmpty( rect ) ) return pixels;
    const int breath = getBreath( _breathe );
    const size_t row = static_cast<size_t>( rect.width( ) ) * 4;
    _faded.resize( row * static_cast<size_t>( rect.height( ) ) );
    for( int y = 0; y < rect.height( ); ++y )
    {
        const char* from = pixels + 4 * ( static_cast<size_t>( rect.top + y ) * format.width + rect.left );
        char* to = _faded.data( ) + row * static_cast<size_t>( y );
        std::copy( from, from + row, to );
        for( size_t i = 3; i < row; i += 4 )
            to[i] = static_cast<char>( static_cast<unsigned char>( to[i] ) * breath >> 8 );
    }
    format.width = rect.width( );
    format.height = rect.height( );
    rect = { 0, 0, format.width, format.height };
    return _faded.data( );
}
