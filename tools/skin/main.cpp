// Shows the author of a skin what the engine makes of it: checks a template, lists its windows, draws one to a picture, or opens
// one on the desktop with sample data. Works in the skin's directory.
#include "GSkinCheck.h"
#include "GSkinOptions.h"
#include "GSkinPlaces.h"
#include "GSkinPreview.h"
#include "GSkinReference.h"
#include "GSkinSample.h"

#include "client/skin/GTemplate.h"
#include "client/skin/nodes/GForeachNode.h"
#include "client/skin/nodes/GWindowNode.h"
#include "platform/GSystem.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <unistd.h>

namespace
{
void writeLog( const GWString& line )
{
    std::fputs( GWideToUTF8( line ).c_str( ), stderr );
}

// Prints the findings; their number, or -1 for a file that cannot be read.
int findFlaws( const GSkinOptions& options, size_t& elementCount )
{
    std::vector<GSkinElement> elements;
    GWString error;
    int line = 0;
    const GString file = GWideToUTF8( options.file );
    if( !GSkinRead( options.file, elements, error, line ) )
    {
        std::fprintf( stderr, "%s(%d): %s\n", file.c_str( ), line, GWideToUTF8( error ).c_str( ) );
        return -1;
    }
    elementCount = elements.size( );
    const std::vector<GSkinFinding> findings = GSkinCheck( elements );
    for( const GSkinFinding& finding : findings )
        std::fprintf( stderr, "%s(%d): %s\n", file.c_str( ), finding.line, GWideToUTF8( finding.text ).c_str( ) );
    return static_cast<int>( findings.size( ) );
}

void tellFlaws( const GSkinOptions& options )
{
    size_t elements = 0;
    findFlaws( options, elements );
}

int check( const GSkinOptions& options )
{
    size_t elements = 0;
    const int findings = findFlaws( options, elements );
    if( findings >= 0 ) std::printf( "%zu elements, %d findings\n", elements, findings );
    return findings ? 1 : 0;
}

void list( GTemplate& engine )
{
    for( GTemplateNode* node = engine.getRoot( ); node; node = node->getNext( engine.getRoot( ) ) )
    {
        // What is repeated is no window itself.
        const auto* foreach = dynamic_cast<const GForeachNode*>( node->getParent( ) );
        if( foreach && !foreach->isClone( *node ) ) continue;
        if( dynamic_cast<GWindowNode*>( node ) ) std::printf( "%s\n", GWideToUTF8( node->getPath( ) ).c_str( ) );
    }
}

GWindowNode* findWindow( GTemplate& engine, const GWString& name )
{
    const GWString path = name.starts_with( u"/" ) ? name : u"/skin/" + name;
    auto* window = dynamic_cast<GWindowNode*>( engine.findNode( path ) );
    if( !window ) std::fprintf( stderr, "no window '%s'\n", GWideToUTF8( path ).c_str( ) );
    return window;
}

bool fill( GInstance& instance, const GSkinOptions& options )
{
    // Lines of a chat open its window: only where one is asked for.
    const bool chats = options.window.find( u"chat" ) != GWString::npos;
    if( !options.empty && !GSkinFillSample( &instance, options.sample, options.buddies, chats ) )
    {
        std::fprintf( stderr, "no sample '%s'\n", options.sample.c_str( ) );
        return false;
    }
    if( !options.dataFile.empty( ) && !GSkinFillFile( &instance, options.dataFile ) )
    {
        std::fprintf( stderr, "cannot read %s\n", options.dataFile.c_str( ) );
        return false;
    }
    for( const GString& setting : options.settings )
    {
        const size_t equals = setting.find( '=' );
        if( equals == GString::npos ) continue;
        instance.set( GUTF8ToWide( setting.substr( 0, equals ) ), GUTF8ToWide( setting.substr( equals + 1 ) ) );
    }
    return true;
}

// Takes no hotkey of the author's desktop, and holds the talk button that the sample shows.
GSkinPlatform previewPlatform( )
{
    GSkinPlatform platform;
    platform.isLeftButtonDown = [] { return true; };
    platform.openHotkey = []( const GWString&, const GWString& ) { return GHotkey( ); };
    platform.closeHotkey = []( GHotkey ) {};
    return platform;
}

int run( const GSkinOptions& options )
{
    // Nothing of the sample is kept: the program leaves without the blackboard's farewell.
    GInstance* instance = GSAFENEW( GInstance, ( u"velmora-skin.ini" ) );
    if( !fill( *instance, options ) ) return 2;
    GTemplate* engine = GSAFENEW( GTemplate, ( instance, options.file, previewPlatform( ) ) );
    // The engine assigns its first hotkey while it starts: the sample's stands for it.
    fill( *instance, options );
    if( options.action == "--list" )
    {
        list( *engine );
        return 0;
    }
    GWindowNode* window = findWindow( *engine, options.window );
    if( !window ) return 1;
    if( options.action == "--show" ) return GSkinPreviewShow( options, *window, tellFlaws );
    if( options.action == "--render" ) return GSkinPreviewRender( options, *window );
    GSkinPreviewPrepare( options, *window );
    GSkinPrintPlaces( *window );
    return 0;
}

// A file named from where the author stands, not from the skin's directory.
void makeWhole( GString& path )
{
    if( path.empty( ) || path.front( ) == '/' ) return;
    const std::unique_ptr<char, void ( * )( void* )> here( realpath( ".", nullptr ), std::free );
    path = GString( here.get( ) ) + "/" + path;
}
} // namespace

int main( int argc, char** argv )
{
    GSkinOptions options = GSkinOptionsRead( argc, argv );
    if( options.action.empty( ) )
    {
        std::fputs( GSkinOptionsUsage( ).c_str( ), stderr );
        return 2;
    }
    if( options.action == "--reference" )
    {
        std::fputs( GSkinReferenceMake( ).c_str( ), stdout );
        return 0;
    }
    makeWhole( options.out );
    makeWhole( options.dataFile );
    if( !options.directory.empty( ) && chdir( options.directory.c_str( ) ) != 0 )
    {
        std::fprintf( stderr, "no directory %s\n", options.directory.c_str( ) );
        return 2;
    }
    GPortableGetHooks( ).log = writeLog;
    if( options.action == "--check" ) return check( options );
    if( options.action == "--show" )
        tellFlaws( options );
    else
        setenv( "QT_QPA_PLATFORM", "offscreen", 0 );
    GSkinPreviewStart( );
    GInitializeNonPortable( nullptr );
    const int result = run( options );
    std::fflush( nullptr );
    std::_Exit( result );
}
