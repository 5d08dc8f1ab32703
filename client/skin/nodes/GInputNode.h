// A piece of the window's frame that can be dragged: owns its pixels and answers the hit code of its edge.
// User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"

class GInputNode : public GTemplateNode, public IGInputHandler
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    int getNCHITTEST( GWin win, int x, int y ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    GWString _edge;
    int _hitCode = GHIT_CLIENT;
};
