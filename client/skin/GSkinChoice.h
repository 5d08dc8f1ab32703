// Which file of a skin is shown: the settings "Skin_Palette" (Dusk, Paper) and "Skin_Scale" (100, 150, 200; anything else: the
// desktop's) choose template[-paper][@1.5x|@2x].xml. A file that is not there gives way to template.xml, with a warning.
// User-interface thread.
#pragma once

#include "runtime/GInstance.h"

#include <functional>

class GSkinChoice
{
public:
    // `scale`: the desktop's, 1.0 at 96 dots an inch.
    GSkinChoice( GInstance& instance, std::function<double( )> scale );
    // Looks at the settings and the desktop; true when the choice is another than before. Nothing is allocated while it is not.
    bool update( );
    const GWString& getFile( ) const { return _file; }

private:
    GInstance& _instance;
    std::function<double( )> _getScale;
    GWString _palette;
    GWString _scaleText;
    GWString _passing;
    double _scale = 0;
    GWString _file;
};
