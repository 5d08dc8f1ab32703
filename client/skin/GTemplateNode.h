// One element of the skin: its name, raw attributes and children, and the two recursive passes over them. `update` evaluates
// attributes and reports changes, `render` draws. The tree belongs to the user-interface thread; a parent owns its children.
#pragma once

#include "client/skin/GAttributeStack.h"
#include "client/skin/GSkinDamage.h"
#include "client/skin/GSkinTable.h"
#include "client/skin/IGCommandEngine.h"
#include "runtime/GInstance.h"
#include "runtime/GObject.h"

#include <list>

class GImageStack;

class GTemplateNode : public GHeapObject
{
public:
    using ChildList = std::list<GTemplateNode*>;

    // What the class reads and what it sets for the nodes inside: none, unless it has tables of its own.
    static GAttributeTable getAttributeTable( ) { return { }; }
    static GNameTable getNameTable( ) { return { }; }

    // Precondition: "instance && commandEngine". All three are borrowed; `parent` is null at the root.
    GTemplateNode( GInstance* instance, IGCommandEngine* commandEngine, GTemplateNode* parent );
    void invariantTest( ) const override;
    ~GTemplateNode( ) override;

    // Raises width and height to what the node needs, in pixels; never lowers them. The base asks every child.
    virtual void calcMinSize( int& width, int& height );

    // Pushes this node's attributes, updates the children, and says whether anything changed.
    bool update( GAttributeStack& stack );
    void render( GImageStack& images );

    GInstance* getInstance( ) const { return _instance; }
    IGCommandEngine* getCommandEngine( ) const { return _commandEngine; }
    GTemplateNode* getParent( ) const { return _parent; }
    // The element name exactly as it was written.
    const GWString& getName( ) const { return _name; }
    bool isNamed( GWStringView name ) const; // Ignores case.
    // "name_id", or the name alone without an id.
    GWString getID( ) const;
    GWString getParentPath( ) const;
    // "/skin/window_a/...". Kept until an id or a parent changes; the reference holds as long as the node does.
    const GWString& getPath( ) const;
    // Relative path of IDs with "/" between, ignoring case; the first match wins, null when none. Preconditions "!path.empty( )";
    // an empty step fails "step.size( )". A node that makes children on demand makes the one that is asked for.
    GTemplateNode* getChild( GWStringView path );
    // Depth-first successor; the walk up ends after leaving `stop`. Null at the end.
    GTemplateNode* getNext( GTemplateNode* stop );
    const ChildList& getChildren( ) const { return _children; }

    // The node's own raw value, not evaluated; empty when absent. Names compare ignoring case.
    const GWString& getAttribute( GWStringView name ) const;
    void setAttribute( GWStringView name, GWStringView value );
    const GAttributeList& getAttributes( ) const { return _attributes; }

    // What a tree may grow to by copies and repetitions; a skin asks for more only by mistake.
    static constexpr size_t MAX_NODES = 250000;
    static constexpr int MAX_DEPTH = 512;
    // Grows `damage` by what this subtree shows of values that have changed and that are watched for a repaint alone. Whoever watches so
    // overrides it; in doubt a node claims all that it drew.
    virtual void collectDamage( GSkinDamage& damage ) const;

    // True when a copy of `source` and all below it may grow here; else a warning says why not.
    bool mayGrow( const GTemplateNode& source ) const;

    // A deep copy of names, attributes and children below `parent`; not yet linked into its children. The caller owns it.
    GTemplateNode* clone( GTemplateNode* parent ) const;
    // Takes ownership and becomes the node's parent.
    void appendChild( GTemplateNode* child );
    // Gives the ownership of that child back to the caller; false when it is none.
    bool removeChild( GTemplateNode* child );
    // Moves all children of `other` to the end of this node's.
    void adoptChildren( GTemplateNode& other );

protected:
    // True: the children are updated.
    virtual bool _preChildUpdate( GAttributeStack& stack );
    // True when any child changed; every child is updated.
    virtual bool _updateChildren( GAttributeStack& stack );
    // True when this node changed. Runs even when the children were passed over.
    virtual bool _postChildUpdate( GAttributeStack& stack );
    // True: the children are drawn and _postChildRender runs.
    virtual bool _preChildRender( GImageStack& images );
    virtual void _renderChildren( GImageStack& images );
    virtual void _postChildRender( GImageStack& images );
    // The child of that ID, made and linked now; null when there is none to make.
    virtual GTemplateNode* _makeChild( GWStringView step );

    GInstance* _instance;
    IGCommandEngine* _commandEngine;
    GTemplateNode* _parent;
    GRect _drawn; // Where it was drawn in the layer.
    GWString _name;
    ChildList _children;
    GAttributeList _attributes;

private:
    friend class GTemplateFactory;

    // The value of the first attribute of that name, which is made when there is none.
    GWString& _obtainAttribute( GWStringView name );
    // Nodes of the subtree, and its greatest depth.
    void _measure( size_t& count, int& depth ) const;

    mutable GWString _cachedPath;
    mutable uint64_t _cachedPathGeneration = 0;
};
