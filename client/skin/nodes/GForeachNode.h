// Repeats its first child for every entry of a blackboard list, or for the first "$most" of them: a clone bears the entry as its
// attribute "$as". Clones come and go with the list; the first child itself is never shown. Cells that are repeated within a row or
// a column take their places there. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/nodes/GNodeTools.h"

class GForeachNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    ~GForeachNode( ) override;

    // False for the pattern.
    bool isClone( const GTemplateNode& child ) const { return !child.getAttribute( _as ).empty( ); }
    // The entry that the repeated part around `node` stands for, where it repeats that list; empty outside of one.
    static GWString findEntry( const GTemplateNode* node, GWStringView list );

protected:
    bool _preChildUpdate( GAttributeStack& stack ) override;
    bool _updateChildren( GAttributeStack& stack ) override;
    bool _postChildUpdate( GAttributeStack& stack ) override;
    void _renderChildren( GImageStack& images ) override;

private:
    GTemplateNode* _findClone( GWStringView entry ) const;
    void _addClone( GAttributeStack& stack, const GWString& entry );
    bool _mayGrow( const GTemplateNode& pattern );
    void _removeMissing( const GStringList& entries );
    void _deleteRetired( );

    GWString _list;
    GWString _as;
    int _most = 0;  // 0 for all.
    GWString _text; // The list, as it was split last.
    bool _changed = false;
    bool _warned = false;
    bool _full = false; // No more clones grow.
    bool _updating = false;
    GNodeWatchList _watches{ GWATCH_UPDATE };
    GStringList _entries; // Those that are repeated.
    ChildList _retired;   // Removed while a command ran; deleted at the next pass.
};
