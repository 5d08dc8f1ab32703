// Lays its cells out side by side ("Row") or one below the other ("Col"): each gets its least size and a share of the spare
// space by its extra. A Foreach stands for the cells that it repeats; other children are passed over. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"

class GCellNode;

class GRowNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    static GNameTable getNameTable( );
    void calcMinSize( int& width, int& height ) override;

protected:
    bool _preChildUpdate( GAttributeStack& stack ) override;
    void _renderChildren( GImageStack& images ) override;

private:
    struct Item
    {
        GCellNode* cell;
        int size;
        int extra;
    };
    bool _isColumn( ) const;
    template <typename Call>
    void _forEachCell( Call call ) const;
    int _measure( bool column );

    std::vector<Item> _items; // Of the last layout; kept for its capacity.
};
