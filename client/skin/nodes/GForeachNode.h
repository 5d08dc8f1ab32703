// Repeats its first child for every entry of a blackboard list, or for the first "$most" of them: a clone bears the entry as its
// attribute "$as". Clones come and go with the list; the first child itself is never shown. Cells that are repeated within a row or
// a column take their places there. An entry that would be more than itself in an expression, a command or a path is left out with a
// warning. With "lazy" a clone is made only when its path is asked for, or when the value or queue named by the entry and "$until"
// holds something: what nobody opens costs nothing. User-interface thread.
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
    // True for an entry that stays what it is in expressions, commands and paths.
    static bool isPlain( GWStringView entry );

protected:
    bool _preChildUpdate( GAttributeStack& stack ) override;
    bool _updateChildren( GAttributeStack& stack ) override;
    bool _postChildUpdate( GAttributeStack& stack ) override;
    void _renderChildren( GImageStack& images ) override;
    GTemplateNode* _makeChild( GWStringView step ) override;

private:
    GTemplateNode* _findClone( GWStringView entry ) const;
    void _readEntries( );
    void _addAll( GAttributeStack& stack );
    void _addWanted( GAttributeStack& stack );
    void _listSleepers( GNotifyHandle listener );
    GTemplateNode* _append( const GWString& entry );
    void _addClone( GAttributeStack& stack, const GWString& entry );
    bool _mayGrow( const GTemplateNode& pattern );
    void _removeMissing( const GStringList& entries );
    void _deleteRetired( );

    GWString _list;
    GWString _as;
    int _most = 0;  // 0 for all.
    GWString _text; // The list, as it was split last.
    bool _lazy = false;
    GWString _until;
    struct Sleeper
    {
        GWString entry;
        GWString name; // What wakes it.
    };
    std::vector<Sleeper> _sleepers; // Entries without a clone.
    bool _stale = true;             // They have changed.
    int _made = 0;
    bool _changed = false;
    bool _warned = false;
    bool _full = false; // No more clones grow.
    bool _updating = false;
    GNodeWatchList _watches{ GWATCH_UPDATE };
    GNodeWatchList _untilWatches{ GWATCH_UPDATE };
    GStringList _entries; // Those that are repeated.
    GStringList _refused; // Those that were warned of.
    ChildList _retired;   // Removed while a command ran; deleted at the next pass.
};
