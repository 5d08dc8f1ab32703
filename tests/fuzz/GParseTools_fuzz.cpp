// Menus and commands of any text end, and a command's steps come to an end too.
#include "Fuzz.h"
#include "client/skin/commands/GCommand.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    const GWString text = GUTF8ToWide( GString( reinterpret_cast<const char*>( data ), size ) );
    std::vector<GMenuItem> items;
    GParseTools_parseMenu( items, text );
    for( const GMenuItem& item : items ) GCommandMake( item.command, nullptr );
    GCommand command = GCommandMake( text, nullptr );
    command.calc( u"" );
    size_t left = command.path.size( );
    while( !command.path.empty( ) )
    {
        GCommandTakeStep( command.path );
        Fuzz::require( command.path.size( ) < left );
        left = command.path.size( );
    }
    return 0;
}
