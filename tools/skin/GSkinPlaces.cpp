#include "GSkinPlaces.h"

#include "client/skin/nodes/GWindowNode.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace
{
struct Place
{
    GRect rect;
    size_t first; // In reading order.
};

std::map<IGInputHandler*, Place> findPlaces( const GWindowNode& window )
{
    std::map<IGInputHandler*, Place> places;
    const auto& map = window.getInputMap( );
    const auto width = static_cast<size_t>( std::max( window.getLayerFormat( ).width, 1 ) );
    for( size_t i = 0; i < map.size( ); ++i )
    {
        if( !map[i] ) continue;
        const int x = static_cast<int>( i % width );
        const int y = static_cast<int>( i / width );
        GRect& rect = places.try_emplace( map[i], Place{ { x, y, x + 1, y + 1 }, i } ).first->second.rect;
        rect = { std::min( rect.left, x ), rect.top, std::max( rect.right, x + 1 ), y + 1 };
    }
    return places;
}

void print( const GTemplateNode& node, const GRect& rect )
{
    std::printf( "%d\t%d\t%d\t%d\t%s", rect.left, rect.top, rect.width( ), rect.height( ),
                 GWideToUTF8( node.getPath( ) ).c_str( ) );
    for( const auto& [name, value] : node.getAttributes( ) )
        std::printf( "\t%s=%s", GWideToUTF8( name ).c_str( ), GWideToUTF8( value ).c_str( ) );
    std::printf( "\n" );
}
} // namespace

void GSkinPrintPlaces( GWindowNode& window )
{
    const auto places = findPlaces( window );
    std::vector<std::pair<IGInputHandler*, Place>> ordered( places.begin( ), places.end( ) );
    std::ranges::sort( ordered, { }, []( const auto& entry ) { return entry.second.first; } );
    for( const auto& [handler, place] : ordered )
        if( const auto* node = dynamic_cast<const GTemplateNode*>( handler ) ) print( *node, place.rect );
    int width = 0;
    int height = 0;
    window.calcMinSize( width, height );
    std::printf( "0\t0\t%d\t%d\t%s\tcontent\n", width, height, GWideToUTF8( window.getPath( ) ).c_str( ) );
}
