// The skin engine with a document of a thousand elements, beside the bare parser of the file, a thousand labels of the toolkit and a
// shared grammar; and a buddy list of a hundred live pictures. Times are those of the user-interface thread, on an X server that shows
// the windows. A skin engine of games that is not to be had here took, where it was measured, 4.3 times as long to load as the bare
// parser, and 0.35 of the labels' painting for a frame with a hundred changes, 0.035 for one without: that is what must be reached.
#include "Bench.h"

#include "SkinPeers.h"
#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"
#include "client/skin/GAttributeStack.h"
#include "client/skin/GTemplate.h"
#include "client/skin/GTemplateFactory.h"
#include "client/skin/commands/GParseTools.h"
#include "client/skin/nodes/GNodeTools.h"
#include "client/skin/nodes/GWindowNode.h"
#include "platform/GSystem.h"
#include "platform/GTime.h"
#include "runtime/GInstance.h"

#include <QApplication>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <malloc.h>
#include <memory>
#include <xcb/xcb.h>

namespace
{
constexpr int CHANGES = 100;
constexpr char SKIN[] = "bench_skin.xml";
constexpr char BUDDIES[] = "bench_buddies.xml";

// A clock that is moved on, so that no repaint is held back.
uint64_t now_ = 1000000000;
uint64_t benchTime( )
{
    return now_;
}
void nextFrame( )
{
    now_ += 66667;
}

// It ends with this program.
bool startServer( )
{
    FILE* server = popen(
        "exec setpriv --pdeathsig TERM Xvfb -displayfd 1 -screen 0 1280x5000x24 -nolisten tcp 2>/dev/null", "r" );
    char number[16] = { };
    if( !server || !std::fgets( number, sizeof( number ), server ) ) return false;
    setenv( "DISPLAY", ( ":" + std::to_string( std::atoi( number ) ) ).c_str( ), 1 );
    // The desktop's first connection only looks whether there is a server.
    return !xcb_connection_has_error( xcb_connect( nullptr, nullptr ) );
}

// Rows of cells with a text each: 1 + 1 + 40 * ( 1 + 12 * 2 ) = 1,002 elements, 480 texts, a hundred of which show values.
constexpr int ROWS = 40;
constexpr int COLUMNS = 12;
void writeSkin( )
{
    std::ofstream out( SKIN );
    out << "<Window id=\"bench\" x=\"0\" y=\"0\" width=\"800\" height=\"1000\" font=\"13,,#202020FF,DejaVu Sans\">\n "
           "<Col>\n";
    int value = 0;
    for( int row = 0; row < ROWS; ++row )
    {
        out << "  <Row>\n";
        for( int column = 0; column < COLUMNS; ++column )
        {
            out << "   <Cell extra=\"1\" id=\"c" << column << "\"><Text ";
            if( ( row * COLUMNS + column ) % 4 == 0 && value < CHANGES )
                out << "text=\"$value_" << value << "\" watch=\"value_" << value << "\"", ++value;
            else
                out << "text=\"text " << row * COLUMNS + column << "\"";
            out << "/></Cell>\n";
        }
        out << "  </Row>\n";
    }
    out << " </Col>\n</Window>\n";
}

struct Engine : IGCommandEngine, IGNotifyListener
{
    Engine( ) : notify( GNotifyOpen( this ) ) {}
    ~Engine( ) override { GNotifyClose( notify ); }
    void executeCommand( const GWString&, GTemplateNode*, int ) override {}
    GNotifyHandle getNotifyListener( ) override { return notify; }
    GTemplateNode* getNode( const GWString&, GTemplateNode* ) override { return nullptr; }
    void onNotification( int, uint64_t ) override {}
    GNotifyHandle notify;
};

// A tree with its blackboard.
class Document
{
public:
    explicit Document( const char* file )
    {
        GTemplateFactory factory;
        root.reset( factory.load( instance.get( ), &engine, GUTF8ToWide( file ) ) );
    }
    GWindowNode& window( ) { return static_cast<GWindowNode&>( *root ); }
    bool update( )
    {
        GAttributeStack stack( instance.get( ), engine.notify );
        return root->update( stack );
    }
    void render( )
    {
        nextFrame( );
        GImageStack images;
        root->render( images );
    }
    void change( int round )
    {
        for( int i = 0; i < CHANGES; ++i )
        {
            text = u"value ";
            text += static_cast<const GWString&>( GNumber( round + i ) );
            instance->set( names[static_cast<size_t>( i )], text );
        }
    }

    std::unique_ptr<GInstance> instance{ GSAFENEW( GInstance, ( u"bench_skin.ini" ) ) };
    Engine engine;
    std::unique_ptr<GTemplateNode> root;
    std::vector<GWString> names = namesOfValues( );

private:
    static std::vector<GWString> namesOfValues( )
    {
        std::vector<GWString> names;
        for( int i = 0; i < CHANGES; ++i ) names.push_back( GConcat( u"value_", i ) );
        return names;
    }
    GWString text;
};

double heapMiB( )
{
    const struct mallinfo2 info = mallinfo2( );
    return static_cast<double>( info.uordblks + info.hblkhd ) / 1048576;
}

// What came of the changes so far is delivered.
void pump( )
{
    QCoreApplication::processEvents( );
}

void load( Bench::Suite& suite )
{
    const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( u"bench_skin.ini" ) ) );
    Engine engine;
    GTemplateFactory factory;
    const auto load = [&] { delete factory.load( instance.get( ), &engine, GUTF8ToWide( SKIN ) ); };
    suite.time( "load, beside the bare parser", "ms", { 6.4, 1.5 }, load,
                [] { Bench::parseOnly( GUTF8ToWide( SKIN ) ); } );
}

void passes( Bench::Suite& suite )
{
    Bench::Labels labels;
    Document document( SKIN );
    document.change( 0 );
    document.update( );
    document.render( );
    for( int i = 0; i < 5; ++i ) pump( );
    int round = 0;
    const auto change = [&] { document.change( round += CHANGES ); };
    const auto update = [&]
    {
        if( !document.update( ) ) std::abort( );
    };
    const auto paintLabels = [&]
    {
        labels.change( CHANGES, round += CHANGES );
        labels.paint( );
    };
    suite.time(
        "update pass, beside the labels' layout", "ms", { 1.0, 0.3 }, [&] { change( ), update( ); },
        [&] { labels.change( CHANGES, round += CHANGES ); } );
    suite.time(
        "update pass, beside labels painted", "ms", { 0.35, 0.1 }, [&] { change( ), update( ); }, paintLabels );
    document.update( );
    suite.time(
        "unchanged pass, beside labels painted", "ms", { 0.035, 0.02 },
        [&]
        {
            if( document.update( ) ) std::abort( );
        },
        paintLabels );
    suite.allocationsOf( "unchanged pass", 0, [&] { document.update( ); } );
    suite.time(
        "painted, 100 texts", "ms", { 1.0, 0.5 },
        [&]
        {
            change( );
            nextFrame( );
            pump( );
        },
        paintLabels );
}

void memory( Bench::Suite& suite )
{
    double before = heapMiB( );
    auto labels = std::make_unique<Bench::Labels>( );
    const double anchor = heapMiB( ) - before;
    labels.reset( );
    { // What the engine keeps for all documents is there before.
        Document document( SKIN );
        document.update( );
        document.render( );
    }
    auto document = std::make_unique<Document>( SKIN );
    document->change( 0 );
    document->root.reset( );
    before = heapMiB( );
    GTemplateFactory factory;
    document->root.reset( factory.load( document->instance.get( ), &document->engine, GUTF8ToWide( SKIN ) ) );
    document->update( );
    const double project = heapMiB( ) - before;
    document->render( );
    const double surface = heapMiB( ) - before - project;
    suite.size( "memory of the document, beside the labels", "MiB", { 1.5, 0.6 }, project, anchor );
    // Pixels, their copy for the X server, and the map of who owns each: 16 bytes a pixel.
    suite.size( "memory of the window, beside 16 bytes a pixel", "MiB", { 1.25, 1.0 }, surface,
                800.0 * 1000 * 16 / 1048576 );
}

void expressions( Bench::Suite& suite )
{
    constexpr double MILLION = 1e-6;
    const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( u"bench_skin.ini" ) ) );
    Engine engine;
    const GAttributeList attributes = { { u"align", u"right" }, { u"a", u"buddy7" }, { u"c", u"align" } };
    const std::map<GWString, GWString> names( attributes.begin( ), attributes.end( ) );
    const Bench::SharedGrammar grammar;
    GAttributeStack stack( instance.get( ), engine.notify );
    stack.push( u"/skin/window", attributes );
    for( const char16_t* const text : { u"$align", u"{$a}_b", u"${$c}" } )
    {
        GWString value;
        const GWString source( text );
        const auto evaluate = [&] { Bench::keep( stack.read( source, value ) ); };
        evaluate( );
        if( value != grammar.expand( names, source ) ) std::abort( );
        const std::string name = "expression " + GWideToUTF8( text );
        suite.rate( name, "M/s", MILLION, { 1, 10 }, evaluate,
                    [&] { Bench::keep( grammar.expand( names, source ) ); } );
        suite.allocationsOf( name, 0, evaluate );
    }
}

void commands( Bench::Suite& suite )
{
    const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( u"bench_skin.ini" ) ) );
    std::ofstream( "bench_empty.xml" ) << "<skin/>\n";
    const std::unique_ptr<GTemplate> engine( GSAFENEW( GTemplate, ( instance.get( ), u"bench_empty.xml" ) ) );
    const GWString text = u"(/system?set+name=Skin_Bench+value=1;/system?set+name=Skin_Bench_Too+value=1)";
    std::vector<GMenuItem> items;
    suite.rate(
        "command seen before", "M/s", 1e-6, { 1, 2 }, [&] { engine->command( text ); },
        [&]
        {
            GParseTools_parseMenu( items, text );
            for( const GWString& piece : GSplitList( items.front( ).command ) )
                Bench::keep( GParseTools_parseCommand( piece ) );
        } );
    std::remove( "bench_empty.xml" );
}

// ---- A buddy list of a hundred, each with a picture that moves.

constexpr int BUDDY_COUNT = 100;
constexpr int EDGE = 48;

class LiveList
{
public:
    LiveList( ) : _document( fileOf( ) )
    {
        GStringList list;
        for( int i = 0; i < BUDDY_COUNT; ++i )
        {
            const GWString buddy = GConcat( u"buddy", i, u"@example.com" );
            list.push_back( buddy );
            _document.instance->set( GConcat( buddy, u"_Online" ), 1 );
            _images.push_back( GConcat( buddy, u"_Image" ) );
        }
        _document.instance->set( u"Local_Buddy_List", list );
        send( BUDDY_COUNT );
        _document.update( );
        for( int i = 0; i < 20; ++i ) show( );
    }
    // A frame of each of the first `count` buddies comes, as the playback writes it.
    void send( int count )
    {
        ++_frame;
        ++now_; // No two changes have one time.
        GString pixels( static_cast<size_t>( EDGE ) * EDGE * 3, static_cast<char>( _frame ) );
        for( int i = 0; i < count; ++i )
            GImageTools_instanceWrite( _document.instance.get( ), _images[static_cast<size_t>( i )],
                                       { GIT_RGB24, EDGE, EDGE }, pixels );
    }
    void show( )
    {
        nextFrame( );
        pump( );
    }
    // Seconds of the thread for what `frames` frames of all cost the window.
    double cost( int count, int frames )
    {
        double spent = 0;
        for( int i = 0; i < frames; ++i )
        {
            send( count );
            nextFrame( );
            timespec begin, end;
            clock_gettime( CLOCK_THREAD_CPUTIME_ID, &begin );
            pump( );
            clock_gettime( CLOCK_THREAD_CPUTIME_ID, &end );
            spent += static_cast<double>( end.tv_sec - begin.tv_sec ) +
                     static_cast<double>( end.tv_nsec - begin.tv_nsec ) * 1e-9;
        }
        return spent;
    }
    GWindowNode& window( ) { return _document.window( ); }

private:
    static const char* fileOf( )
    {
        std::ofstream( BUDDIES )
            << "<Window id=\"list\" x=\"0\" y=\"0\" width=\"240\" height=\"" << BUDDY_COUNT * ( EDGE + 4 ) + 40
            << "\" picturesize=\"" << EDGE + 4
            << "\" titlefont=\"13,b,#202020FF,DejaVu Sans\" normalfont=\"13,,#202020FF,"
               "DejaVu Sans\"><Gradient from=\"#E8ECF1FF\" to=\"#FFFFFFFF\"/><BuddyList/></Window>\n";
        return BUDDIES;
    }
    Document _document;
    std::vector<GWString> _images;
    int _frame = 0;
};

void livePictures( Bench::Suite& suite )
{
    constexpr int FPS = 15;
    LiveList list;
    const auto measure = [&]( const char* name, int count, Bench::Limits limits )
    {
        if( !suite.wants( name ) ) return;
        std::vector<std::pair<double, double>> rounds;
        for( int i = 0; i < 15; ++i ) rounds.emplace_back( list.cost( count, FPS ) * 100, 1 );
        suite.measured( name, "% of a core", limits, rounds );
    };
    measure( "100 live pictures", BUDDY_COUNT, { 10, 5 } );
    measure( "1 live picture of 100", 1, { 2, 0.5 } );
    // Of the repaint alone: a new value and the event that tells of it take from the heap themselves. Texts and pictures are kept; what
    // is left are the names of the rows, in the list of who owns which place.
    long taken = 0;
    for( int i = 0; i < 3; ++i )
    {
        list.send( 1 );
        nextFrame( );
        const long before = Bench::allocations( );
        list.window( ).onNotification( GWATCH_RENDER, now_ );
        taken = Bench::allocations( ) - before;
    }
    suite.counted( "repaint with one new picture", taken, 10 * BUDDY_COUNT );
}
} // namespace

int main( int argc, char** argv )
{
    if( !startServer( ) ) return 2;
    GTimeSetSource( benchTime );
    GInitializeNonPortable( nullptr );
    writeSkin( );
    Bench::Suite suite( "skin", argc, argv );
    load( suite );
    passes( suite );
    memory( suite );
    expressions( suite );
    commands( suite );
    livePictures( suite );
    for( const char* file : { SKIN, BUDDIES, "bench_skin.ini" } ) std::remove( file );
    std::fflush( stdout );
    std::_Exit( suite.finish( ) );
}
