// Fills its frame from one colour to another, or only its alpha. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"

class GGradientNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    GWString _from;
    GWString _to;
    bool _alphaOnly = false;
    bool _vertical = false;
};
