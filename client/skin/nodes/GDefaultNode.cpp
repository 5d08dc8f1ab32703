#include "client/skin/nodes/GDefaultNode.h"

#include "base/GUtil.h"

#include <algorithm>

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
// Whether an expression reads it as one name.
bool isPlainName( const GWString& name )
{
    return std::all_of( name.begin( ), name.end( ),
                        []( char16_t unit )
                        {
                            return GWITHIN( u'a', unit, u'z' ) || GWITHIN( u'A', unit, u'Z' ) ||
                                   GWITHIN( u'0', unit, u'9' ) || unit == u'.' || unit == u'_' || unit == u'@';
                        } );
}
} // namespace

GAttributeTable GDefaultNode::getOnTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"event", GAttributeKind::text, u"",
          u"Its content shows while the blackboard value `g_event` is this text." },
    };
    return ROWS;
}

GAttributeTable GDefaultNode::getIfTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"watch", GAttributeKind::valueName, u"", u"The name of a blackboard value: a change decides anew." },
        { u"cond", GAttributeKind::toggle, u"off", u"Its content shows while this is on." },
        { u"equals", GAttributeKind::text, u"", u"Its content also shows while the watched value is this text." },
    };
    return ROWS;
}

GAttributeTable GDefaultNode::getPageTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"title", GAttributeKind::text, u"", u"Its title, by which `jump` finds it too." },
        { u"text", GAttributeKind::text, u"", u"Its text, for the skin to show as `$wizardtext`." },
        { u"onshow", GAttributeKind::command, u"", u"Runs when the page is turned to." },
        { u"onhide", GAttributeKind::command, u"", u"Runs when it is left." },
    };
    return ROWS;
}

GNameTable GDefaultNode::getPieceNameTable( )
{
    static constexpr GNameRow ROWS[] = {
        { u"align", u"Towards the centre: `right` in the pieces at the left, `left` in those at the right." },
        { u"valign", u"Towards the centre: `bottom` in the pieces at the top, `top` in those at the bottom." },
    };
    return ROWS;
}

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
        // An expression ends a name at a sign such as "-", which ids of buddies may have: those are looked up whole.
        if( isPlainName( _watchName ) )
            stack.read( u"${$watch}", _value );
        else
            GNodeTools_readValue( _instance, _watchName, _value );
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
    return stack.readEach( u"$onshow", _onShow, u"$onhide", _onHide, u"$title", _title, u"$text", _text );
}

bool GDefaultNode::_preChildRender( GImageStack& )
{
    return !_hidden;
}
