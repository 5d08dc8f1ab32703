#include "client/skin/nodes/GProgressNode.h"

#include "client/drawing/GImageStack.h"

#include <algorithm>

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
    changed |= stack.read( u"$src", _src );
    _watch.update( _instance, _src, stack.getListener( ) );
    return changed;
}

bool GProgressNode::_preChildRender( GImageStack& images )
{
    if( _src.empty( ) ) return true;
    // Values come from anywhere; more than a screen's width shows nothing more.
    constexpr int64_t LIMIT = INT32_MAX;
    const int64_t value = std::clamp<int64_t>( _instance->calc( _src ), -LIMIT, LIMIT );
    const int length = static_cast<int>( std::clamp<int64_t>( value * _width / _scale, 0, LIMIT / 2 ) );
    if( length > 0 ) images.drawHorizLine( _x, _y, length, getAttribute( u"color" ) );
    return true;
}
