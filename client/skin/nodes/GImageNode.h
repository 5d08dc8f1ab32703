// Shows an image source, scaled, tiled or aligned in its frame. A blackboard image repaints the window when it changes. With
// "$breathe", in milliseconds, a picture with an alpha channel grows paler and comes back in that time, as long as it is drawn.
// User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/nodes/GNodeTools.h"
#include "image/GImageFormat.h"

class GImageNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    void calcMinSize( int& width, int& height ) override;
    void collectDamage( GSkinDamage& damage ) const override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    const char* _fade( GImageFormat& format, const char* pixels, GRect& rect );

    GWString _src;
    GWString _mode;
    bool _disabled = false;
    int _flags = 0;
    int _x = 0;
    int _y = 0;
    int _slice = 0; // Pixels of the corners that keep their size; 0 when the picture is drawn in one piece.
    int _breathe = 0;
    GString _faded;
    void _draw( GImageStack& images );
    // Looks at the picture without drawing it.
    bool _check( GImageFormat& format, GRect& rect ) const;

    // Of the picture that was drawn. Reading stamps a value anew, also without a draw.
    GRect _sourceRect;
    mutable uint64_t _stamp = 0;
    GNodeWatch _watch{ GWATCH_RENDER };
};
