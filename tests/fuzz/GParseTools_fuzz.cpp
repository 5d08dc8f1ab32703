// Menus of any text come apart into pairs, the same ones from the table of texts that ran before.
#include "Fuzz.h"
#include "client/skin/commands/GCommandCache.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    static GCommandCache cache;
    const GWString text = GUTF8ToWide( GString( reinterpret_cast<const char*>( data ), size ) );
    std::vector<GMenuItem> items;
    GParseTools_parseMenu( items, text );
    const GCommandCache::Menu menu = cache.parse( text );
    Fuzz::require( menu->labels.size( ) == items.size( ) && menu->commands.size( ) == items.size( ) );
    for( size_t i = 0; i < items.size( ); ++i )
    {
        Fuzz::require( items[i].label == menu->labels[i] );
        Fuzz::require( items[i].label.find( u'(' ) == GWString::npos );
        Fuzz::require( !items[i].command.empty( ) && items[i].command.find( u')' ) == GWString::npos );
        Fuzz::require( menu->commands[i].size( ) == GSplitList( items[i].command ).size( ) );
    }
    Fuzz::require( cache.size( ) <= GCommandCache::MAX_TEXTS );
    return 0;
}
