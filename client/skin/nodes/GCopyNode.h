// Reuse by reference: the first update clones the node named by "$src" and puts this node's own children at the end of the clone.
// User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"

class GCopyNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );

protected:
    bool _preChildUpdate( GAttributeStack& stack ) override;

private:
    bool _isAncestor( const GTemplateNode* node ) const;

    GWString _src;
};
