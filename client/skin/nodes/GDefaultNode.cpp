#include "client/skin/nodes/GDefaultNode.h"

#include "base/GUtil.h"

namespace
{
bool startsWith( const GWString& name, GWStringView part )
{
    return GCaseEquals( GWStringView( name ).substr( 0, part.size( ) ), part );
}
bool endsWith( const GWString& name, GWStringView part )
{
    return name.size( ) >= part.size( ) &&
           GCaseEquals( GWStringView( name ).substr( name.size( ) - part.size( ) ), part );
}
} // namespace

bool GDefaultNode::_preChildUpdate( GAttributeStack& stack )
{
    _changed = false;
    if( isNamed( u"on" ) ) _updateOn( stack );
    if( isNamed( u"if" ) ) _changed = _updateIf( stack );
    _leanTowardCentre( stack );
    return !_hidden || _changed;
}

void GDefaultNode::_updateOn( GAttributeStack& stack )
{
    stack.read( u"$g_event", _value );
    stack.read( u"$event", _want );
    _hidden = _value != _want;
}

bool GDefaultNode::_updateIf( GAttributeStack& stack )
{
    stack.read( u"$watch", _watchName );
    _watch.update( _instance, _watchName, stack.getListener( ) );
    bool shown = stack.test( u"$cond" );
    stack.read( u"$equals", _want );
    if( !shown && !_want.empty( ) )
    {
        stack.read( u"${$watch}", _value );
        shown = _value == _want;
    }
    const bool changed = _hidden == shown;
    _hidden = !shown;
    return changed;
}

void GDefaultNode::_leanTowardCentre( GAttributeStack& stack ) const
{
    if( startsWith( _name, u"top" ) ) stack.set( u"valign", u"bottom" );
    if( startsWith( _name, u"bottom" ) ) stack.set( u"valign", u"top" );
    if( endsWith( _name, u"left" ) ) stack.set( u"align", u"right" );
    if( endsWith( _name, u"right" ) ) stack.set( u"align", u"left" );
}

bool GDefaultNode::_updateChildren( GAttributeStack& stack )
{
    // A gate that closed or opened is a change, whatever stands behind it; what it hides rests.
    const bool changed = _changed;
    return ( !_hidden && GTemplateNode::_updateChildren( stack ) ) || changed;
}

bool GDefaultNode::_postChildUpdate( GAttributeStack& stack )
{
    if( _hidden || !isNamed( u"page" ) ) return false;
    bool changed = stack.read( u"$onshow", _onShow );
    changed |= stack.read( u"$onhide", _onHide );
    changed |= stack.read( u"$title", _title );
    changed |= stack.read( u"$text", _text );
    return changed;
}

bool GDefaultNode::_preChildRender( GImageStack& )
{
    return !_hidden;
}
