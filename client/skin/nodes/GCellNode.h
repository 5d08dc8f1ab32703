// A place in a row or column: fixed or least size, alignment inside a larger frame, and its share of spare space.
// User-interface thread.
#pragma once

#include "base/GRect.h"
#include "client/skin/GTemplateNode.h"

class GCellNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    static GNameTable getNameTable( );
    void calcMinSize( int& width, int& height ) override;
    // The cell's share of spare space, 0 to 100.
    int getExtra( ) const;

protected:
    bool _preChildUpdate( GAttributeStack& stack ) override;
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;
    void _postChildRender( GImageStack& images ) override;

private:
    int _fixedWidth = 0;
    int _fixedHeight = 0;
    int _extra = 0;
    int _flags = 0;
    int _x = 0;
    int _y = 0;
};
