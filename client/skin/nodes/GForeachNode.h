// Repeats its first child for every entry of a blackboard list: a clone bears the entry as its attribute "$as". Clones come and
// go with the list; the first child itself is never shown. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/nodes/GNodeTools.h"

class GForeachNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    ~GForeachNode( ) override;

protected:
    bool _preChildUpdate( GAttributeStack& stack ) override;
    bool _updateChildren( GAttributeStack& stack ) override;
    bool _postChildUpdate( GAttributeStack& stack ) override;
    void _renderChildren( GImageStack& images ) override;

private:
    GTemplateNode* _findClone( GWStringView entry ) const;
    void _addClone( GAttributeStack& stack, const GWString& entry );
    void _removeMissing( const GStringList& entries );
    void _deleteRetired( );

    GWString _list;
    GWString _as;
    GWString _text; // The list, as it was split last.
    bool _changed = false;
    bool _warned = false;
    bool _updating = false;
    GNodeWatchList _watches{ GWATCH_UPDATE };
    GStringList _entries;
    ChildList _retired; // Removed while a command ran; deleted at the next pass.
};
