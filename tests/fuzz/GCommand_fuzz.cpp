// Commands of any text, a line each, run on a live engine from a node of each class: every one ends, and the tree stays whole.
#include "FuzzSkin.h"

#include <memory>

namespace
{
constexpr char SKIN[] =
    "<skin><Window id=\"a\" hidden=\"1\" width=\"20\" height=\"20\" onopen=\"(?fadein+duration=5)\">"
    "<Edit/><List list=\"x,y\" select=\"y\"/><Table prefixlistsrc=\"Keys\" suffixlist=\"_A\"/>"
    "<Wizard><page id=\"one\"/><page id=\"two\" title=\"Second\"/></Wizard></Window></skin>";

// A blackboard and its engine, fresh from time to time: commands may name any value.
struct Engine
{
    Engine( )
    {
        const GWString path = u"fuzz_command.xml";
        GFileSave( path, SKIN, sizeof( SKIN ) - 1 );
        instance.reset( GSAFENEW( GInstance, ( u"fuzz_command.ini" ) ) );
        skin.reset( GSAFENEW( GTemplate, ( instance.get( ), path, FuzzSkin::answersNothing( ) ) ) );
    }
    std::unique_ptr<GInstance> instance;
    std::unique_ptr<GTemplate> skin;
    int runs = 0;
};

Engine& engine( )
{
    constexpr int MOST_RUNS = 1000;
    static std::unique_ptr<Engine> made;
    if( made && made->runs++ >= MOST_RUNS ) made.reset( );
    if( !made ) made = std::make_unique<Engine>( );
    return *made;
}

// Rows of queues that nobody reads here.
void drain( GInstance& instance )
{
    GString item;
    for( const GWStringView queue :
         { u"GClient_commandQueue", u"GSIPService_commandQueue", u"GScreenService_commandQueue",
           u"GVideoCaptureService_commandQueue", u"GFileService_commandQueue", u"GLogfileService_commandQueue" } )
        while( instance.dequeue( queue, item ) )
        {
        }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    GTemplate& skin = *engine( ).skin;
    GInstance* const instance = skin.getInstance( );
    instance->set( u"Keys", u"k" );
    instance->set( u"Audio_Capture_Online", 1 );
    Fuzz::Input input( data, size );
    while( !input.empty( ) )
    {
        GTemplateNode* source = skin.getRoot( );
        for( int i = input.byte( ) % 8; i > 0 && source; --i ) source = source->getNext( skin.getRoot( ) );
        skin.executeCommand( input.wideLine( ), source );
    }
    drain( *instance );
    skin.onTimer( skin.getTimer( ) );
    Fuzz::require( skin.getNode( u"/skin/window_a/wizard", nullptr ) != nullptr );
    return 0;
}
