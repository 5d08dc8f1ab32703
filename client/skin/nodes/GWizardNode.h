// Shows one of its pages, with optional header, footer and sidebar; pages are reached in order or by name. The current page is
// the node's own attribute "page". User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"

class GDefaultNode;

class GWizardNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    static GNameTable getNameTable( );
    void calcMinSize( int& width, int& height ) override;

    // Past the ends nothing happens.
    void next( );
    void back( );
    // Runs "$ondone".
    void done( );
    // Shows the page with that id without running any command; stays where it is when there is none.
    void resume( const GWString& id );
    // To the first page with that title, or failing that with that id, ignoring case.
    void jump( const GWString& target );
    // Run what the current page runs as it comes and goes: for a window that is opened and closed around it.
    void show( );
    void hide( );

protected:
    bool _preChildUpdate( GAttributeStack& stack ) override;
    bool _updateChildren( GAttributeStack& stack ) override;
    bool _postChildUpdate( GAttributeStack& stack ) override;
    void _renderChildren( GImageStack& images ) override;

private:
    GTemplateNode* _getHeader( ) const;
    GTemplateNode* _getSidebar( ) const;
    GTemplateNode* _getFooter( ) const;
    GDefaultNode* _getPage( ) const;
    GDefaultNode* _getNextPage( ) const;
    GDefaultNode* _getBackPage( ) const;
    GTemplateNode* _getNamed( GWStringView name ) const;
    static GDefaultNode* _asPage( GTemplateNode* child );
    bool _isCurrent( const GTemplateNode& child ) const;
    void _choosePage( GAttributeStack& stack );
    void _joinTitles( GWString& titles ) const;
    void _setPage( GDefaultNode* page );
    void _updateSidebar( const GDefaultNode& page );
    void _refreshWindow( );

    GWString _onDone;
    GWString _windowPath;
    GWString _titles; // Of all pages, as the last pass saw them, and as they are after it.
    GWString _newTitles;
    GNotifyHandle _listener = nullptr;
    bool _layoutDirty = false;
};
