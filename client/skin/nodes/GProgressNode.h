// A horizontal line whose length follows a number on the blackboard. With "$fillsrc" it is that picture, cut where the line would
// end, on the picture "$backsrc". User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/nodes/GNodeTools.h"

class GProgressNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );

    void collectDamage( GSkinDamage& damage ) const override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    void _drawPicture( GImageStack& images, const GWString& source, int width );

    int _x = 0;
    int _y = 0;
    int _width = 0;
    int _scale = 1;
    GWString _src;
    GWString _fillSrc;
    GWString _backSrc;
    GNodeWatch _watch{ GWATCH_RENDER };
};
