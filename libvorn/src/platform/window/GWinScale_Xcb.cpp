#include "base/GTypes.h"
#include "platform/GWin.h"
#include "platform/input/GXcb.h"

#include <algorithm>
#include <cstdlib>
#include <xcb/xcb.h>

namespace
{
constexpr double LEAST_SCALE = 0.5;
constexpr double MOST_SCALE = 4.0;

// The dots an inch that the user has set for the desktop; 0 when he has not.
double getDotsPerInch( )
{
    const GString resources = GXcbGetRootText( XCB_ATOM_RESOURCE_MANAGER );
    constexpr std::string_view NAME = "Xft.dpi:";
    size_t line = 0;
    while( line < resources.size( ) )
    {
        if( std::string_view( resources ).substr( line ).starts_with( NAME ) )
            return std::strtod( resources.c_str( ) + line + NAME.size( ), nullptr );
        const size_t end = resources.find( '\n', line );
        if( end == GString::npos ) break;
        line = end + 1;
    }
    return 0;
}
} // namespace

double GWinGetScale( )
{
    constexpr double PLAIN = 96;
    const char* wanted = std::getenv( "VELMORA_SCALE" );
    double scale = wanted ? std::strtod( wanted, nullptr ) : 0;
    if( !( scale > 0 ) ) scale = getDotsPerInch( ) / PLAIN;
    return scale > 0 ? std::clamp( scale, LEAST_SCALE, MOST_SCALE ) : 1.0;
}
