#include "client/skin/nodes/GInputNode.h"

#include "client/drawing/GImageStack.h"

namespace
{
struct Edge
{
    GWStringView text;
    GHitCode code;
};
constexpr Edge EDGES[] = {
    { u"topleft", GHIT_TOPLEFT },   { u"top", GHIT_TOP },
    { u"topright", GHIT_TOPRIGHT }, { u"left", GHIT_LEFT },
    { u"right", GHIT_RIGHT },       { u"bottomleft", GHIT_BOTTOMLEFT },
    { u"bottom", GHIT_BOTTOM },     { u"bottomright", GHIT_BOTTOMRIGHT },
};
} // namespace

GAttributeTable GInputNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"edge", GAttributeKind::choice, u"",
          u"The edge of the window that this piece resizes: `left`, `right`, `top`, `bottom`, `topleft`, `topright`, "
          u"`bottomleft`, `bottomright`. Anything else: plain ground that does not drag the window." },
    };
    return ROWS;
}

bool GInputNode::_postChildUpdate( GAttributeStack& stack )
{
    if( !stack.read( u"$edge", _edge ) ) return false;
    _hitCode = GHIT_CLIENT;
    for( const Edge& edge : EDGES )
    {
        if( GCaseEquals( _edge, edge.text ) ) _hitCode = edge.code;
    }
    return true;
}

bool GInputNode::_preChildRender( GImageStack& images )
{
    images.setInputHandler( this );
    return true;
}

int GInputNode::getNCHITTEST( GWin, int, int )
{
    return _hitCode;
}
