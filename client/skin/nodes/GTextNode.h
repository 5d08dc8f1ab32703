// Shows a text. A value on the blackboard is shown by naming it in "$text" and in "$watch". User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/nodes/GNodeTools.h"

class GTextNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    void calcMinSize( int& width, int& height ) override;
    const GWString& getText( ) const { return _text; }

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    GWString _text;
    GNodeFont _font;
    GWString _watchText;
    GNodeWatchList _watches{ GWATCH_UPDATE };
};
