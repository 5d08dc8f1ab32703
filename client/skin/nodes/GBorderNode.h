// Nine named pieces in a grid of three by three around "inside"; corners and edges take their least size, the inside the rest,
// optionally at a set aspect ratio. Other children cover the whole border. User-interface thread.
#pragma once

#include "base/GRect.h"
#include "client/skin/GTemplateNode.h"

#include <array>

class GBorderNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    void calcMinSize( int& width, int& height ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    void _renderChildren( GImageStack& images ) override;

private:
    // Row by row; null where the skin has no such piece.
    using Pieces = std::array<GTemplateNode*, 9>;
    struct Grid
    {
        std::array<int, 3> columns;
        std::array<int, 3> rows;
    };
    Pieces _getPieces( ) const;
    static bool _isPiece( const GTemplateNode& node );
    static Grid _measure( const Pieces& pieces );
    void _holdAspect( GTemplateNode* inside, GRect& inner ) const;

    GWString _aspect;
};
