#include "client/skin/nodes/GWizardNode.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GDefaultNode.h"
#include "client/skin/nodes/GNodeTools.h"

#include <algorithm>

GAttributeTable GWizardNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"page", GAttributeKind::text, u"", u"The id of the page at the start; empty for the first." },
        { u"ondone", GAttributeKind::command, u"", u"Runs on the command `done`." },
        { u"windowpath", GAttributeKind::text, u"", u"Which window to refresh; the window sets it." },
    };
    return ROWS;
}

GNameTable GWizardNode::getNameTable( )
{
    static constexpr GNameRow ROWS[] = {
        { u"wizardtitle", u"The title of the page that shows." },
        { u"wizardtext", u"The text of that page." },
        { u"wizardpath", u"The wizard's path, for commands: `($wizardpath?next)`." },
        { u"backdisabled", u"1 when there is no page before, else 0." },
        { u"nextdisabled", u"1 when there is no page after, else 0." },
        { u"list", u"The titles of all pages." },
        { u"select", u"In the sidebar: the title of the page that was just turned to." },
        { u"disabled", u"1 for the pages that do not show, else 0." },
    };
    return ROWS;
}

// ---- Children by name.

GTemplateNode* GWizardNode::_getNamed( GWStringView name ) const
{
    const auto named = [&]( const GTemplateNode* child ) { return child->isNamed( name ); };
    const auto found = std::find_if( _children.begin( ), _children.end( ), named );
    return found == _children.end( ) ? nullptr : *found;
}

GTemplateNode* GWizardNode::_getHeader( ) const
{
    return _getNamed( u"header" );
}

GTemplateNode* GWizardNode::_getSidebar( ) const
{
    return _getNamed( u"sidebar" );
}

GTemplateNode* GWizardNode::_getFooter( ) const
{
    return _getNamed( u"footer" );
}

GDefaultNode* GWizardNode::_asPage( GTemplateNode* child )
{
    return child->isNamed( u"page" ) ? dynamic_cast<GDefaultNode*>( child ) : nullptr;
}

bool GWizardNode::_isCurrent( const GTemplateNode& child ) const
{
    return child.isNamed( u"page" ) && GCaseEquals( child.getAttribute( u"id" ), getAttribute( u"page" ) );
}

GDefaultNode* GWizardNode::_getPage( ) const
{
    for( GTemplateNode* child : _children )
    {
        if( _isCurrent( *child ) ) return _asPage( child );
    }
    return nullptr;
}

GDefaultNode* GWizardNode::_getNextPage( ) const
{
    bool passed = false;
    for( GTemplateNode* child : _children )
    {
        GDefaultNode* page = _asPage( child );
        if( page && passed ) return page;
        passed |= page && page == _getPage( );
    }
    return nullptr;
}

GDefaultNode* GWizardNode::_getBackPage( ) const
{
    GDefaultNode* before = nullptr;
    for( GTemplateNode* child : _children )
    {
        GDefaultNode* page = _asPage( child );
        if( page && page == _getPage( ) ) return before;
        if( page ) before = page;
    }
    return nullptr;
}

// ---- Update.

bool GWizardNode::_preChildUpdate( GAttributeStack& stack )
{
    _listener = stack.getListener( );
    _choosePage( stack );
    const GDefaultNode* page = _getPage( );
    _joinTitles( _titles );
    stack.set( u"wizardtitle", page ? GWStringView( page->getTitle( ) ) : GWStringView( ) );
    stack.set( u"wizardtext", page ? GWStringView( page->getText( ) ) : GWStringView( ) );
    stack.set( u"wizardpath", getPath( ) );
    stack.set( u"backdisabled", _getBackPage( ) ? 0 : 1 );
    stack.set( u"nextdisabled", _getNextPage( ) ? 0 : 1 );
    stack.set( u"list", _titles );
    return true;
}

// The attribute holds the id itself, so an expression or an absent one is settled at the first pass.
void GWizardNode::_choosePage( GAttributeStack& stack )
{
    const GWString& own = getAttribute( u"page" );
    if( !own.empty( ) && own.find( u'$' ) == GWString::npos ) return;
    setAttribute( u"page", own.empty( ) ? GWString( ) : stack.eval( own ) );
    if( _getPage( ) ) return;
    if( const GTemplateNode* first = _getNamed( u"page" ) )
        setAttribute( u"page", GWString( first->getAttribute( u"id" ) ) );
}

void GWizardNode::_joinTitles( GWString& titles ) const
{
    titles.clear( );
    for( GTemplateNode* child : _children )
    {
        const GDefaultNode* page = _asPage( child );
        if( !page ) continue;
        if( !titles.empty( ) ) titles += u", ";
        titles += page->getTitle( );
    }
}

bool GWizardNode::_updateChildren( GAttributeStack& stack )
{
    bool changed = false;
    for( GTemplateNode* child : _children )
    {
        const bool page = GCaseEquals( GWStringView( child->getName( ) ).substr( 0, 4 ), u"page" );
        stack.set( u"disabled", page && !_isCurrent( *child ) ? 1 : 0 );
        changed |= child->update( stack );
    }
    return changed;
}

bool GWizardNode::_postChildUpdate( GAttributeStack& stack )
{
    const bool changed = stack.readEach( u"$ondone", _onDone, u"$windowpath", _windowPath ) || _layoutDirty;
    _layoutDirty = false;
    // Titles that this pass brought are shown by the next one.
    _joinTitles( _newTitles );
    if( _newTitles != _titles ) GNotify( _listener, GWATCH_UPDATE );
    return changed;
}

// ---- Operations.

void GWizardNode::_setPage( GDefaultNode* page )
{
    if( !page ) return;
    if( const GDefaultNode* current = _getPage( ) ) GNodeTools_execute( this, current->getOnHide( ) );
    _layoutDirty = true;
    setAttribute( u"page", GWString( page->getAttribute( u"id" ) ) );
    GNodeTools_execute( this, page->getOnShow( ) );
    _updateSidebar( *page );
    _refreshWindow( );
}

void GWizardNode::resume( const GWString& id )
{
    for( GTemplateNode* child : _children )
    {
        const GDefaultNode* page = _asPage( child );
        if( !page || page->getAttribute( u"id" ) != id ) continue;
        _layoutDirty = true;
        setAttribute( u"page", id );
        return _updateSidebar( *page );
    }
}

// So that a list in the sidebar follows the page.
void GWizardNode::_updateSidebar( const GDefaultNode& page )
{
    GTemplateNode* sidebar = _getSidebar( );
    if( !sidebar ) return;
    GAttributeStack stack( _instance, _commandEngine->getNotifyListener( ) );
    if( _listener ) stack.push( _listener );
    stack.set( u"select", page.getTitle( ) );
    _joinTitles( _newTitles );
    stack.set( u"list", _newTitles );
    sidebar->update( stack );
    if( _listener ) stack.pop( );
}

void GWizardNode::_refreshWindow( )
{
    GNodeTools_execute( this, u"(" + _windowPath + u"?refresh)" );
}

void GWizardNode::next( )
{
    _setPage( _getNextPage( ) );
}

void GWizardNode::back( )
{
    _setPage( _getBackPage( ) );
}

void GWizardNode::done( )
{
    _layoutDirty = true;
    GNodeTools_execute( this, _onDone );
    _refreshWindow( );
}

void GWizardNode::jump( const GWString& target )
{
    GDefaultNode* byId = nullptr;
    for( GTemplateNode* child : _children )
    {
        GDefaultNode* page = _asPage( child );
        if( !page ) continue;
        if( GCaseEquals( page->getTitle( ), target ) ) return _setPage( page );
        if( !byId && GCaseEquals( page->getAttribute( u"id" ), target ) ) byId = page;
    }
    if( !byId ) GLOG( u"WARNING Unable to jump to page '", target, u"', ignoring." );
    _setPage( byId );
}

void GWizardNode::show( )
{
    if( const GDefaultNode* page = _getPage( ) ) GNodeTools_execute( this, page->getOnShow( ) );
}

void GWizardNode::hide( )
{
    if( const GDefaultNode* page = _getPage( ) ) GNodeTools_execute( this, page->getOnHide( ) );
}

// ---- Layout.

void GWizardNode::calcMinSize( int& width, int& height )
{
    GTemplateNode* header = _getHeader( );
    int total = 0;
    // The header counts twice.
    for( GTemplateNode* part : { header, static_cast<GTemplateNode*>( _getPage( ) ), header } )
    {
        if( !part ) continue;
        int partHeight = 0;
        part->calcMinSize( width, partHeight );
        total += partHeight;
    }
    height = std::max( height, total );
    GTemplateNode* sidebar = _getSidebar( );
    if( !sidebar ) return;
    int sideWidth = 0;
    int sideHeight = 0;
    sidebar->calcMinSize( sideWidth, sideHeight );
    width += sideWidth;
    height = std::max( height, sideHeight );
}

void GWizardNode::_renderChildren( GImageStack& images )
{
    GRect rest;
    images.getDimensions( rest.right, rest.bottom );
    const auto draw = [&]( GTemplateNode* part, const GRect& rect )
    {
        if( !part ) return;
        images.pushTarget( rect );
        part->render( images );
        images.pop( );
    };
    const auto minOf = []( GTemplateNode* part )
    {
        GRect min;
        if( part ) part->calcMinSize( min.right, min.bottom );
        return min;
    };
    GTemplateNode* sidebar = _getSidebar( );
    const int side = std::min( minOf( sidebar ).right, rest.right / 2 );
    draw( sidebar, { 0, 0, side, rest.bottom } );
    rest.left = side;

    GTemplateNode* header = _getHeader( );
    const int top = std::min( minOf( header ).bottom, rest.bottom );
    draw( header, { rest.left, 0, rest.right, top } );
    rest.top = top;

    GTemplateNode* footer = _getFooter( );
    const int foot = std::max( rest.top, rest.bottom - minOf( footer ).bottom );
    draw( footer, { rest.left, foot, rest.right, rest.bottom } );
    rest.bottom = foot;
    draw( _getPage( ), rest );
}
