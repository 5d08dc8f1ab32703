#include "client/skin/commands/GCommandCache.h"

#include "base/GUtil.h"

namespace
{
GCommandCache::Menu parseWhole( GWStringView text )
{
    std::vector<GMenuItem> items;
    GParseTools_parseMenu( items, text );
    const auto menu = std::make_shared<GParsedMenu>( );
    for( GMenuItem& item : items )
    {
        menu->labels.push_back( std::move( item.label ) );
        std::vector<GCommandText>& commands = menu->commands.emplace_back( );
        size_t begin = 0;
        for( GWStringView piece; GSplitNext( item.command, begin, piece ); )
            commands.push_back( GParseTools_parseCommand( piece ) );
    }
    return menu;
}
} // namespace

GCommandCache::Menu GCommandCache::parse( GWStringView text )
{
    if( const auto* entry = _menus.find( text ) ) return entry->second;
    Menu menu = parseWhole( text );
    if( text.size( ) > MAX_KEPT_LENGTH ) return menu;
    if( _menus.size( ) >= MAX_TEXTS ) _menus.clear( );
    return _menus.insert( text, std::move( menu ) )->second;
}
