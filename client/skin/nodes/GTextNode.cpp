#include "client/skin/nodes/GTextNode.h"

#include "client/drawing/GImageStack.h"

#include <algorithm>

GAttributeTable GTextNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"text", GAttributeKind::text, u"", u"What it shows. Text between the tags is the same." },
        { u"font", GAttributeKind::font, u"", u"Its font." },
        { u"watch", GAttributeKind::listText, u"",
          u"The names of the blackboard values that it shows: when one changes it is drawn again." },
    };
    return ROWS;
}

bool GTextNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = stack.read( u"$text", _text );
    changed |= _font.read( stack, u"$font" );
    if( stack.read( u"$watch", _watchText ) )
    {
        _watches.update( _instance, GSplitList( _watchText ), stack.getListener( ) );
        changed = true;
    }
    return changed;
}

void GTextNode::calcMinSize( int& width, int& height )
{
    GTemplateNode::calcMinSize( width, height );
    height = std::max( height, _font.getHeight( ) );
}

bool GTextNode::_preChildRender( GImageStack& images )
{
    if( !_text.empty( ) ) images.drawText( _text, _font );
    return true;
}
