// Shows the author of a skin what the engine makes of it: checks a template, lists its windows, draws one to a picture, or opens
// one on the desktop with sample data. Works in the skin's directory.
#include "GSkinCheck.h"
#include "GSkinPlaces.h"
#include "GSkinSample.h"

#include "client/skin/GTemplate.h"
#include "client/skin/nodes/GForeachNode.h"
#include "client/skin/nodes/GWindowNode.h"
#include "client/skin/nodes/GWizardNode.h"
#include "image/GColor.h"
#include "image/GImage.h"
#include "platform/GSystem.h"
#include "platform/GTime.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace
{
constexpr const char* USAGE = "velmora-skin --check                         report what is wrong with the template\n"
                              "velmora-skin --list                          name its windows\n"
                              "velmora-skin --render <window> <out.png>     draw a window, e.g. window_login\n"
                              "velmora-skin --places <window>               where its parts take the pointer\n"
                              "velmora-skin --show <window>                 open a window on the desktop\n"
                              "  --dir <directory>      where the skin is (default: here)\n"
                              "  --template <file>      default template.xml\n"
                              "  --scale <1|1.5|2>      takes template@<scale>x.xml\n"
                              "  --size <w>x<h>         sizes the window before it is drawn\n"
                              "  --buddies <count>      on the sample list, default 6\n"
                              "  --empty                no sample data at all\n"
                              "  --set <name>=<value>   a value on the blackboard, after the sample data\n"
                              "  --page <target>        jumps the window's first wizard there\n"
                              "  --hover <x>,<y>        puts the pointer there;  --click <x>,<y> clicks there first\n"
                              "  --background <#RRGGBB> what shines through, default #8A93A0\n";

struct Options
{
    GString action;
    GWString window;
    GString out;
    GString directory;
    GWString file = u"template.xml";
    GString background = "#8A93A0";
    GWString page;
    int width = 0;
    int height = 0;
    int buddies = 6;
    bool empty = false;
    int hover[2] = { -1, -1 };
    int click[2] = { -1, -1 };
    std::vector<GString> settings;
};

// A day in 2026, set forward by hand: fades end, repaints are never held back, and a picture is the same whenever it is drawn.
uint64_t forward_ = 0;
uint64_t clockTime( )
{
    constexpr uint64_t DAY = 13428322800000000ULL; // 9:40 on 12 July 2026.
    return DAY + forward_;
}

void writeLog( const GWString& line )
{
    std::fputs( GWideToUTF8( line ).c_str( ), stderr );
}

GWString wide( const char* text )
{
    return GUTF8ToWide( text );
}

// The value of an option, moving on; ends the program when it is missing.
const char* next( int argc, char** argv, int& i )
{
    if( i + 1 < argc ) return argv[++i];
    std::fprintf( stderr, "%s needs a value\n%s", argv[i], USAGE );
    std::exit( 2 );
}

bool parseValue( Options& options, const GString& name, const char* value )
{
    if( name == "--dir" )
        options.directory = value;
    else if( name == "--template" )
        options.file = wide( value );
    else if( name == "--scale" )
        options.file = std::strcmp( value, "1" ) == 0 ? u"template.xml" : u"template@" + wide( value ) + u"x.xml";
    else if( name == "--size" )
        std::sscanf( value, "%dx%d", &options.width, &options.height );
    else if( name == "--buddies" )
        options.buddies = std::atoi( value );
    else if( name == "--set" )
        options.settings.emplace_back( value );
    else if( name == "--page" )
        options.page = wide( value );
    else if( name == "--hover" )
        std::sscanf( value, "%d,%d", &options.hover[0], &options.hover[1] );
    else if( name == "--click" )
        std::sscanf( value, "%d,%d", &options.click[0], &options.click[1] );
    else if( name == "--background" )
        options.background = value;
    else
        return false;
    return true;
}

Options parseOptions( int argc, char** argv )
{
    Options options;
    for( int i = 1; i < argc; ++i )
    {
        const GString name = argv[i];
        if( name == "--check" || name == "--list" )
            options.action = name;
        else if( name == "--empty" )
            options.empty = true;
        else if( name == "--render" || name == "--show" || name == "--places" )
        {
            options.action = name;
            options.window = wide( next( argc, argv, i ) );
            if( name == "--render" ) options.out = next( argc, argv, i );
        }
        else if( !parseValue( options, name, next( argc, argv, i ) ) )
            options.action.clear( );
    }
    return options;
}

// ---- Check and list.

int check( const Options& options, bool quiet )
{
    std::vector<GSkinElement> elements;
    GWString error;
    int line = 0;
    const GString file = GWideToUTF8( options.file );
    if( !GSkinRead( options.file, elements, error, line ) )
    {
        std::fprintf( stderr, "%s(%d): %s\n", file.c_str( ), line, GWideToUTF8( error ).c_str( ) );
        return 1;
    }
    const std::vector<GSkinFinding> findings = GSkinCheck( elements );
    for( const GSkinFinding& finding : findings )
        std::fprintf( stderr, "%s(%d): %s\n", file.c_str( ), finding.line, GWideToUTF8( finding.text ).c_str( ) );
    if( !quiet ) std::printf( "%zu elements, %zu findings\n", elements.size( ), findings.size( ) );
    return findings.empty( ) ? 0 : 1;
}

// ---- A running skin.

template <typename NODE>
NODE* findNode( GTemplateNode* from )
{
    for( GTemplateNode* node = from; node; node = node->getNext( from ) )
        if( auto* found = dynamic_cast<NODE*>( node ) ) return found;
    return nullptr;
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
    auto* window = dynamic_cast<GWindowNode*>( engine.getNode( path, nullptr ) );
    if( !window ) std::fprintf( stderr, "no window '%s'\n", GWideToUTF8( path ).c_str( ) );
    return window;
}

// Delivers what is posted, then updates and draws.
void settle( GWindowNode& window )
{
    for( int round = 0; round < 3; ++round )
    {
        bool quit = false;
        GWinPostQuit( 0 );
        GWinUpdate( quit );
        forward_ += 1000000;
        window.onNotification( GRESPONSE_UPDATE, GTimeGetTime( ) );
        forward_ += 1000000;
        window.onShow( window.getWin( ) );
    }
}

void prepare( const Options& options, GWindowNode& window )
{
    window.fadeIn( 0 );
    if( options.width > 0 && options.height > 0 )
    {
        GRect rect = window.getRect( );
        rect.right = rect.left + options.width;
        rect.bottom = rect.top + options.height;
        GWinMove( window.getWin( ), rect );
        window.onReposition( window.getWin( ), rect );
    }
    settle( window );
    if( !options.page.empty( ) )
    {
        if( auto* wizard = findNode<GWizardNode>( &window ) ) wizard->jump( options.page );
        settle( window );
    }
    if( options.click[0] >= 0 )
    {
        window.getNCHITTEST( window.getWin( ), options.click[0], options.click[1] );
        window.onLButtonDown( window.getWin( ), options.click[0], options.click[1] );
        window.onLButtonUp( window.getWin( ), options.click[0], options.click[1] );
        settle( window );
    }
    if( options.hover[0] < 0 ) return;
    window.getNCHITTEST( window.getWin( ), options.hover[0], options.hover[1] );
    window.onMouseMove( window.getWin( ), options.hover[0], options.hover[1] );
    settle( window );
}

// The premultiplied layer over one colour.
GString compose( const GImageFormat& format, const GString& layer, uint32_t background )
{
    const size_t count = static_cast<size_t>( format.width ) * static_cast<size_t>( format.height );
    GString out( count * 3, '\0' );
    for( size_t i = 0; i < count * 3; ++i )
    {
        const size_t pixel = i / 3;
        const auto source = static_cast<unsigned char>( layer[pixel * 4 + i % 3] );
        const auto alpha = static_cast<unsigned char>( layer[pixel * 4 + 3] );
        const uint32_t ground = background >> ( 16 - 8 * ( i % 3 ) ) & 255;
        out[i] = static_cast<char>( std::min<uint32_t>( 255, source + ground * ( 255u - alpha ) / 255 ) );
    }
    return out;
}

int render( const Options& options, GWindowNode& window )
{
    prepare( options, window );
    GImageFormat format = window.getLayerFormat( );
    if( format.width < 1 || format.height < 1 )
    {
        std::fprintf( stderr, "the window drew nothing\n" );
        return 1;
    }
    const uint32_t ground = GColorFromText( wide( options.background.c_str( ) ) );
    const GString pixels = compose( format, window.getLayerPixels( ), ground );
    format.type = GIT_RGB24;
    GString png;
    GImageConvert( format, pixels.data( ), GRect{ 0, 0, format.width, format.height }, GIT_PNG, png );
    std::unique_ptr<FILE, int ( * )( FILE* )> file( std::fopen( options.out.c_str( ), "wb" ), std::fclose );
    if( !file || std::fwrite( png.data( ), 1, png.size( ), file.get( ) ) != png.size( ) )
    {
        std::fprintf( stderr, "cannot write %s\n", options.out.c_str( ) );
        return 1;
    }
    std::printf( "%s: %d by %d\n", options.out.c_str( ), format.width, format.height );
    return 0;
}

int show( GWindowNode& window )
{
    GTimeSetSource( nullptr );
    window.fadeIn( 150000 );
    bool quit = false;
    GWinUpdate( quit );
    return 0;
}

void fill( GInstance& instance, const Options& options )
{
    // Lines of a chat open its window: only where one is asked for.
    const bool chats = options.window.find( u"chat" ) != GWString::npos;
    if( !options.empty ) GSkinFillSample( &instance, options.buddies, chats );
    for( const GString& setting : options.settings )
    {
        const size_t equals = setting.find( '=' );
        if( equals == GString::npos ) continue;
        instance.set( GUTF8ToWide( setting.substr( 0, equals ) ), setting.substr( equals + 1 ) );
    }
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

int run( const Options& options )
{
    // Nothing of the sample is kept: the program leaves without the blackboard's farewell.
    GInstance* instance = GSAFENEW( GInstance, ( u"velmora-skin.ini" ) );
    fill( *instance, options );
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
    if( options.action == "--show" ) return show( *window );
    if( options.action == "--render" ) return render( options, *window );
    prepare( options, *window );
    GSkinPrintPlaces( *window );
    return 0;
}
} // namespace

int main( int argc, char** argv )
{
    Options options = parseOptions( argc, argv );
    if( options.action.empty( ) )
    {
        std::fputs( USAGE, stderr );
        return 2;
    }
    if( !options.out.empty( ) && options.out.front( ) != '/' )
    {
        // Named from where the author stands, not from the skin's directory.
        const std::unique_ptr<char, void ( * )( void* )> here( realpath( ".", nullptr ), std::free );
        options.out = GString( here.get( ) ) + "/" + options.out;
    }
    if( !options.directory.empty( ) && chdir( options.directory.c_str( ) ) != 0 )
    {
        std::fprintf( stderr, "no directory %s\n", options.directory.c_str( ) );
        return 2;
    }
    GPortableGetHooks( ).log = writeLog;
    const int found = check( options, options.action != "--check" );
    if( options.action == "--check" ) return found;
    if( options.action != "--show" ) setenv( "QT_QPA_PLATFORM", "offscreen", 0 );
    GTimeSetSource( clockTime );
    GInitializeNonPortable( nullptr );
    const int result = run( options );
    std::fflush( nullptr );
    std::_Exit( result );
}
