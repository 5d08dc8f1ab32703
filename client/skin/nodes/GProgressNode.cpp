#include "client/skin/nodes/GProgressNode.h"

#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"

#include <algorithm>

GAttributeTable GProgressNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"src", GAttributeKind::valueName, u"", u"The blackboard value that it shows." },
        { u"scale", GAttributeKind::number, u"1", u"The value at full length; 0 is passed over." },
        { u"width", GAttributeKind::number, u"0", u"Its full length." },
        { u"x", GAttributeKind::number, u"0", u"Its left end." },
        { u"y", GAttributeKind::number, u"0", u"Its height in the frame." },
        { u"color", GAttributeKind::colour, u"", u"Its colour, taken as it is written: no expression." },
        { u"fillsrc", GAttributeKind::image, u"", u"A picture instead of the line, cut where the line would end." },
        { u"backsrc", GAttributeKind::image, u"", u"The picture below that." },
    };
    return ROWS;
}

bool GProgressNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = stack.read( u"$x", _x );
    changed |= stack.read( u"$y", _y );
    changed |= stack.read( u"$width", _width );
    const int scale = stack.calc( u"$scale" );
    if( scale != 0 && scale != _scale )
    {
        _scale = scale;
        changed = true;
    }
    changed |= stack.read( u"$fillsrc", _fillSrc );
    changed |= stack.read( u"$backsrc", _backSrc );
    changed |= stack.read( u"$src", _src );
    _watch.update( _instance, _src, stack.getListener( ) );
    return changed;
}

bool GProgressNode::_preChildRender( GImageStack& images )
{
    _drawPicture( images, _backSrc, INT32_MAX );
    if( _src.empty( ) ) return true;
    // Values come from anywhere; more than a screen's width shows nothing more.
    constexpr int64_t LIMIT = INT32_MAX;
    const int64_t value = std::clamp<int64_t>( _instance->calc( _src ), -LIMIT, LIMIT );
    const int length = static_cast<int>( std::clamp<int64_t>( value * _width / _scale, 0, LIMIT / 2 ) );
    if( !_fillSrc.empty( ) )
        _drawPicture( images, _fillSrc, length );
    else if( length > 0 )
        images.drawHorizLine( _x, _y, length, getAttribute( u"color" ) );
    return true;
}

void GProgressNode::_drawPicture( GImageStack& images, const GWString& source, int width )
{
    if( source.empty( ) ) return;
    GImageFormat format;
    GRect part;
    const char* pixels = GImageTools_instanceReadOpen( _instance, source, format, part );
    if( !pixels ) return;
    part.right = part.left + std::min( part.width( ), width );
    if( GRectHasVolume( part ) )
        images.drawBitmap( format, pixels, part, { _x, _y, _x + part.width( ), _y + part.height( ) }, 0 );
    GImageTools_instanceReadClose( _instance, source );
}

void GProgressNode::collectDamage( GSkinDamage& damage ) const
{
    GTemplateNode::collectDamage( damage );
    if( !_src.empty( ) && _instance->getTimestamp( _src ) >= damage.getSince( ) ) damage.add( _drawn );
}
