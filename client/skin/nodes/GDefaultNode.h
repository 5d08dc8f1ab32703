// Any element that names no other class. A few names have a meaning of their own: "on" and "if" gate their subtree, the pieces of
// a border lean toward its centre, and "page" keeps what a wizard shows. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/nodes/GNodeTools.h"

class GDefaultNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    // By element, since one class serves them all: what the elements of that name read, and what the pieces of a border set.
    static GAttributeTable getOnTable( );
    static GAttributeTable getIfTable( );
    static GAttributeTable getPageTable( );
    static GNameTable getPieceNameTable( );

    bool isHidden( ) const { return _hidden; }
    // Of a page, as of its last update.
    const GWString& getOnShow( ) const { return _onShow; }
    const GWString& getOnHide( ) const { return _onHide; }
    const GWString& getTitle( ) const { return _title; }
    const GWString& getText( ) const { return _text; }

protected:
    bool _preChildUpdate( GAttributeStack& stack ) override;
    bool _updateChildren( GAttributeStack& stack ) override;
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    void _updateOn( GAttributeStack& stack );
    bool _updateIf( GAttributeStack& stack );
    void _leanTowardCentre( GAttributeStack& stack ) const;

    bool _hidden = false;
    bool _changed = false;
    GWString _onShow;
    GWString _onHide;
    GWString _title;
    GWString _text;
    GWString _watchName;
    GWString _want;
    GWString _value;
    GNodeWatch _watch{ GWATCH_UPDATE };
};
