#include "client/skin/nodes/GGradientNode.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GNodeTools.h"

GAttributeTable GGradientNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"from", GAttributeKind::colour, u"#FFFFFFFF", u"The colour at the left, or at the top." },
        { u"to", GAttributeKind::colour, u"#000000FF", u"The colour at the right, or at the bottom." },
        { u"vertical", GAttributeKind::toggle, u"off", u"From top to bottom." },
        { u"alphaonly", GAttributeKind::toggle, u"off", u"Changes only how opaque the frame is." },
    };
    return ROWS;
}

bool GGradientNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = GNodeTools_readOr( stack, u"$from", u"#FFFFFFFF", _from );
    changed |= GNodeTools_readOr( stack, u"$to", u"#000000FF", _to );
    changed |= stack.read( u"$alphaonly", _alphaOnly );
    changed |= stack.read( u"$vertical", _vertical );
    return changed;
}

bool GGradientNode::_preChildRender( GImageStack& images )
{
    images.drawGradient( GColorFromText( _from ), GColorFromText( _to ), _vertical, _alphaOnly );
    return true;
}
