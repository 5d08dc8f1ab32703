#include "client/skin/GTemplate.h"

#include "TemplateTest.h"
#include "client/skin/commands/GCommand.h"
#include "client/skin/nodes/GEditNode.h"
#include "support/CountAllocations.h"

namespace
{
class GTemplateTest : public TemplateTest
{
};

std::string menu( const std::string& text )
{
    std::vector<GMenuItem> items;
    GParseTools_parseMenu( items, GUTF8ToWide( text ) );
    std::string out;
    for( const GMenuItem& item : items )
        out += "[" + GWideToUTF8( item.label ) + "|" + GWideToUTF8( item.command ) + "]";
    return out;
}
std::string command( const std::string& text )
{
    const GCommandText parsed = GParseTools_parseCommand( GUTF8ToWide( text ) );
    std::string out = GWideToUTF8( parsed.path );
    for( const auto& [name, value] : parsed.args ) out += " " + GWideToUTF8( name ) + "=" + GWideToUTF8( value );
    return out;
}
} // namespace

// ---- The grammars.

TEST( GParseTools, MenusPairLabelsAndCommands )
{
    EXPECT_EQ( menu( "(/a?open)" ), "[|/a?open]" );
    EXPECT_EQ( menu( "A(/a?open);B c(/b?close)" ), "[A|/a?open][B c|/b?close]" );
    EXPECT_EQ( menu( "A(/a?open;/b?open);B(/c)" ), "[A|/a?open;/b?open][B|/c]" );
    EXPECT_EQ( menu( "A(/a);" ), "[A|/a]" );
}

TEST( GParseTools, AMissingCloseAtTheEndDoesNoHarm )
{
    EXPECT_EQ( menu( "(/a?open" ), "[|/a?open]" );
    EXPECT_EQ( menu( "A(/a);B(/b" ), "[A|/a][B|/b]" );
}

TEST( GParseTools, ALabelWithoutACommandIsNoItem )
{
    EXPECT_EQ( menu( "/a?open" ), "" );
    EXPECT_EQ( menu( "" ), "" );
    EXPECT_EQ( menu( "A()" ), "" );
    EXPECT_EQ( menu( "A(/a) ;B(/b)" ), "[A|/a]" );
}

TEST( GParseTools, CommandsHaveAPathAnActionAndArguments )
{
    EXPECT_EQ( command( "/skin/window_a?fadeout+duration=300" ), "/skin/window_a =fadeout duration=300" );
    EXPECT_EQ( command( "/a?x&y=1+z=2" ), "/a =x y=1 z=2" );
    EXPECT_EQ( command( "/a" ), "/a" );
    EXPECT_EQ( command( "../?open" ), "../ =open" );
    EXPECT_EQ( command( "?close" ), " =close" );
    EXPECT_EQ( command( "close" ), " =close" );
    EXPECT_EQ( command( "/a?b+c" ), "/a =c" );
    EXPECT_EQ( command( "/a?n=v=w" ), "/a n=v=w" );
    EXPECT_EQ( command( "/a?x+reason=" ), "/a =reason" );
    EXPECT_EQ( command( "/a?+x" ), "/a" );
    EXPECT_EQ( command( "" ), "" );
}

TEST( GParseTools, StepsAreCutAtSlashesAndQuestionMarks )
{
    GWString path = u"/buddies/x?y/z";
    EXPECT_EQ( GParseTools_takeStep( path ), u"buddies" );
    EXPECT_EQ( path, u"x?y/z" );
    EXPECT_EQ( GParseTools_takeStep( path ), u"x" );
    EXPECT_EQ( GParseTools_takeStep( path ), u"y" );
    EXPECT_EQ( GParseTools_takeStep( path ), u"z" );
    EXPECT_EQ( GParseTools_takeStep( path ), u"" );
    path = u"/";
    EXPECT_EQ( GParseTools_takeStep( path ), u"" );
    EXPECT_EQ( path, u"" );
}

// ---- Construction and passes.

TEST_F( GTemplateTest, TheFirstHotkeyIsAssigned )
{
    instance.set( u"Talk_Again_Hotkey", u"CONTROL+SPACE" );
    load( "" );
    EXPECT_EQ( value( u"Misc_Hotkey_List" ), "Talk_Again" );
    EXPECT_EQ( value( u"Working_Hotkey" ), "    (click here and press keys)" );
    EXPECT_EQ( value( u"Talk_Again_Hotkey" ), "CONTROL+SPACE" );
    EXPECT_EQ( hotkeys( ), std::vector<std::string>{ "CONTROL+SPACE Talk_Again" } );
}

TEST_F( GTemplateTest, TheEndClosesEveryHotkey )
{
    instance.set( u"Talk_Again_Hotkey", u"CONTROL+SPACE" );
    load( "" );
    engine.reset( );
    EXPECT_TRUE( desktop.hotkeys.empty( ) );
}

TEST_F( GTemplateTest, ABlackboardIsNeeded )
{
    const SkinFile empty( "<skin/>" );
    EXPECT_DEATH( GSAFENEW( GTemplate, ( nullptr, empty.path, makePlatform( ) ) ),
                  "Precondition failed, aborting. \\(instance\\)" );
}

TEST_F( GTemplateTest, APassSeesTheWorkArea )
{
    instance.set( u"10_20_810_620_800_600", u"seen" );
    load( "<Foreach as=\"id\" list=\"{$screenleft}_{$screentop}_{$screenright}_{$screenbottom}_{$screenwidth}_"
          "{$screenheight}\"><item/></Foreach>" );
    EXPECT_NE( node( u"/skin/foreach/item_seen" ), nullptr );
}

TEST_F( GTemplateTest, ANotificationRunsThePassOverTheTree )
{
    instance.set( u"People", u"ann" );
    load( "<Foreach list=\"People\" as=\"id\"><item/></Foreach>" );
    EXPECT_NE( node( u"/skin/foreach/item_ann" ), nullptr );
    instance.set( u"People", u"ann, bob" );
    engine->onNotification( 2, clock.now( ) );
    EXPECT_NE( node( u"/skin/foreach/item_bob" ), nullptr );
}

TEST_F( GTemplateTest, OnlyARefreshSetsItsMark )
{
    instance.set( u"true", u"one" );
    load( "<Foreach as=\"id\" list=\"$refresh\"><item/></Foreach>" );
    EXPECT_EQ( node( u"/skin/foreach/item_one" ), nullptr );
    run( "(/skin/foreach?refresh)" );
    EXPECT_NE( node( u"/skin/foreach/item_one" ), nullptr );
}

TEST_F( GTemplateTest, ARefreshDoesNotSeeTheAncestorsAttributes )
{
    instance.set( u"People", u"ann" );
    load( "<box from=\"People\"><Foreach as=\"id\" list=\"$from\"><item/></Foreach></box>" );
    EXPECT_NE( node( u"/skin/box/foreach/item_ann" ), nullptr );
    run( "(/skin/box/foreach?refresh)" );
    engine->onNotification( 2, clock.now( ) );
    run( "(/skin/box/foreach?refresh)" );
    EXPECT_EQ( node( u"/skin/box/foreach/item_ann" ), nullptr );
}

// ---- Nodes by path.

TEST_F( GTemplateTest, NodesAreFoundFromTheRootIgnoringCase )
{
    load( "<Window id=\"a\" hidden=\"true\"><Row/></Window>" );
    EXPECT_NE( node( u"/SKIN/WINDOW_A/row" ), nullptr );
    EXPECT_EQ( node( u"/skin/window_b" ), nullptr );
}

TEST_F( GTemplateTest, NodesAreFoundFromAnotherNode )
{
    load( "<Window id=\"a\" hidden=\"true\"><Row><Cell/></Row></Window>" );
    GTemplateNode* cell = node( u"/skin/window_a/row/cell" );
    EXPECT_EQ( engine->getNode( u"..", cell ), node( u"/skin/window_a/row" ) );
    EXPECT_EQ( engine->getNode( u"../", cell ), node( u"/skin/window_a/row" ) );
    EXPECT_EQ( engine->getNode( u"../..", cell ), node( u"/skin/window_a" ) );
    EXPECT_EQ( engine->getNode( u"../../row/cell", cell ), cell );
    EXPECT_EQ( engine->getNode( u"..?..", cell ), node( u"/skin/window_a" ) );
}

TEST_F( GTemplateTest, OtherPathsAreWarnedOf )
{
    load( "<a/>" );
    for( const std::string path : { "/other/a", "a", "..", "../../../..", "/skin/", "/skin//a", "/skin/a?/b", "." } )
    {
        TestLog::expect( "WARNING Requesting non-existent node '" + path + "', ignoring." );
        GTemplateNode* from = path.size( ) > 3 ? node( u"/skin/a" ) : nullptr;
        EXPECT_EQ( engine->getNode( GUTF8ToWide( path ), from ), nullptr ) << path;
    }
    EXPECT_DEATH( engine->getNode( u"", nullptr ), "!path.empty\\( \\)" );
}

TEST_F( GTemplateTest, AnEmptyStepOfARelativePathIsWarnedOfToo )
{
    load( "<a><b/></a>" );
    for( const std::string path : { "..?/b", "..//b", "../?b", "..??" } )
    {
        TestLog::expect( "WARNING Requesting non-existent node '" + path + "', ignoring." );
        EXPECT_EQ( engine->getNode( GUTF8ToWide( path ), node( u"/skin/a/b" ) ), nullptr ) << path;
    }
}

// ---- Commands.

TEST_F( GTemplateTest, ACommandThatRanBeforeIsNeitherParsedNorCopied )
{
    load( "<Edit/>" );
    auto* edit = dynamic_cast<GEditNode*>( node( u"/skin/edit" ) );
    ASSERT_NE( edit, nullptr );
    const GWString command = u"( ?clear , /skin/edit?clear+argument=of some length;?clear )";
    engine->executeCommand( command, edit );
    EXPECT_EQ( countAllocations( [&] { engine->executeCommand( command, edit ); } ), 0 );
}

TEST( GCommandCache, TakesAMenuApart )
{
    GCommandCache cache;
    const GCommandCache::Menu menu = cache.parse( u"A(/buddies/x?talk, ?b+c=d);B(/e)" );
    EXPECT_FALSE( menu->isPlain( ) );
    EXPECT_EQ( menu->labels, ( GStringVector{ u"A", u"B" } ) );
    ASSERT_EQ( menu->commands.size( ), 2u );
    ASSERT_EQ( menu->commands[0].size( ), 2u );
    EXPECT_EQ( menu->commands[0][0].subpath, u"x" );
    EXPECT_EQ( menu->commands[0][1].action, u"b" );
    EXPECT_EQ( cache.parse( u"A(/buddies/x?talk, ?b+c=d);B(/e)" ), menu );
    EXPECT_TRUE( cache.parse( u"(/a?b" )->isPlain( ) );
    EXPECT_TRUE( cache.parse( u"no command" )->labels.empty( ) );
}

TEST( GCommandCache, DoesNotGrowWithoutBound )
{
    GCommandCache cache;
    const GCommandCache::Menu held = cache.parse( u"(/first?open)" );
    for( int i = 0; i < 5000; ++i ) cache.parse( GConcat( u"(/a?set+value=", i, u")" ) );
    EXPECT_LE( cache.size( ), GCommandCache::MAX_TEXTS );
    const size_t kept = cache.size( );
    cache.parse( u"(/a?" + GWString( 5000, u'x' ) + u")" );
    EXPECT_EQ( cache.size( ), kept ) << "long texts are not kept";
    EXPECT_EQ( held->commands[0][0].action, u"open" ) << "who runs a menu keeps it";
}

TEST_F( GTemplateTest, ACommandMustBeOpenedWithAParenthesis )
{
    load( window( "a" ) );
    run( "/skin/window_a?open" );
    EXPECT_EQ( value( u"a_Window" ), "" );
    run( "(/skin/window_a?open" );
    EXPECT_EQ( value( u"a_Window" ), "open" );
}

TEST_F( GTemplateTest, TwoItemsAreAMenuAndTwoPiecesAreNot )
{
    load( window( "a" ) + window( "b" ) );
    run( "(/skin/window_a?open);(/skin/window_b?open)" );
    EXPECT_EQ( desktop.labels, ( std::vector<std::string>{ "", "" } ) );
    EXPECT_EQ( value( u"a_Window" ) + value( u"b_Window" ), "" );
    run( "(/skin/window_a?open;/skin/window_b?open)" );
    EXPECT_EQ( desktop.menus, 1 );
    EXPECT_EQ( value( u"a_Window" ) + value( u"b_Window" ), "openopen" );
}

TEST_F( GTemplateTest, AMenuRunsWhatWasChosen )
{
    load( window( "a" ) );
    desktop.choice = 1;
    run( "Open(/skin/window_a?open);Close(/skin/window_a?close)" );
    EXPECT_EQ( desktop.labels, ( std::vector<std::string>{ "Open", "Close" } ) );
    EXPECT_EQ( value( u"a_Window" ), "closed" );
    desktop.choice = 0;
    run( "Open(/skin/window_a?open)" );
    EXPECT_EQ( value( u"a_Window" ), "open" );
    for( const int outside : { -1, 2, 99 } )
    {
        desktop.choice = outside;
        run( "Open(/skin/window_a?close);Close(/skin/window_a?close)" );
        EXPECT_EQ( value( u"a_Window" ), "open" );
    }
}

TEST_F( GTemplateTest, PiecesAreTrimmedAndSplitAtCommasToo )
{
    load( window( "a" ) + window( "b" ) );
    run( "( /skin/window_a?open ,\t\n/skin/window_b?open;; )" );
    EXPECT_EQ( value( u"a_Window" ) + value( u"b_Window" ), "openopen" );
    TestLog::expect( "WARNING Missing target for action 'two', ignoring." );
    run( "(/system?set+name=List+value=one,two)" );
    EXPECT_EQ( value( u"List" ), "one" );
}

TEST_F( GTemplateTest, UnknownPathsAndTargetsAreWarnedOf )
{
    load( "<a/>" );
    TestLog::expect( "WARNING Unknown path '/nowhere', ignoring." );
    run( "(/nowhere?go)" );
    TestLog::expect( "WARNING Unknown path './x', ignoring." );
    run( "(./x?go)" );
    TestLog::expect( "WARNING Invalid path '/skin/b', ignoring." );
    run( "(/skin/b?open)" );
    TestLog::expect( "WARNING Missing target for action 'close', ignoring." );
    run( "(?close)" );
    TestLog::expect( "WARNING Requesting non-existent node '/skin', ignoring." );
    TestLog::expect( "WARNING Invalid path '/skin', ignoring." );
    run( "(/skin?open)" );
}

TEST_F( GTemplateTest, AFailedPieceDoesNotEndTheRest )
{
    load( window( "a" ) );
    TestLog::expect( "WARNING Unknown path" );
    run( "(/nowhere?go;/skin/window_a?open)" );
    EXPECT_EQ( value( u"a_Window" ), "open" );
}

TEST_F( GTemplateTest, FamiliesAreFoundIgnoringCase )
{
    load( "" );
    run( "(/SYSTEM?SET+name=A+value=1)" );
    EXPECT_EQ( value( u"A" ), "1" );
}

TEST_F( GTemplateTest, BroadcastsAreWrappedAndKeepToALimit )
{
    load( "" );
    GHTTPHeaders inner( u"CHATDONE" );
    engine->broadcastToBuddy( u"bob@x", inner );
    const GHTTPHeaders message = take( u"bob@x_commandQueue" );
    EXPECT_TRUE( message.isMethod( u"DEVICEBROADCAST" ) );
    ASSERT_EQ( message.getContentCount( ), 1 );
    EXPECT_EQ( message.getContent( 0 ), inner.serialize( ) );
    for( int i = 0; i < 1000; ++i ) engine->broadcastToBuddy( u"bob@x", inner );
    EXPECT_EQ( instance.length( u"bob@x_commandQueue" ), 256 );
}

// ---- The restart countdown.

TEST_F( GTemplateTest, TheCountdownOpensWithinThirtySecondsOnce )
{
    load( window( "countdown" ) );
    run( "(/system?delayrestart+delay=31)" );
    tick( );
    EXPECT_EQ( value( u"countdown_Window" ), "" );
    EXPECT_EQ( value( u"Seconds_Until_Auto_Restart" ), "" );
    tickFor( 1500000 );
    EXPECT_EQ( value( u"countdown_Window" ), "open" );
    EXPECT_EQ( value( u"Seconds_Until_Auto_Restart" ), "29" );
    instance.clear( u"countdown_Window" );
    tickFor( 10000000 );
    EXPECT_EQ( value( u"Seconds_Until_Auto_Restart" ), "19" );
    EXPECT_EQ( value( u"countdown_Window" ), "" );
}

TEST_F( GTemplateTest, TheCountdownEndsInARestart )
{
    load( window( "countdown" ) );
    run( "(/system?delayrestart+delay=2)" );
    tickFor( 2000000 );
    EXPECT_EQ( instance.length( u"GClient_commandQueue" ), 1 );
    EXPECT_TRUE( take( u"GClient_commandQueue" ).isMethod( u"LOGOFF" ) );
    EXPECT_EQ( value( u"countdown_Window" ), "closed" );
    EXPECT_EQ( value( u"Restart_On_Exit" ), "1" );
    EXPECT_TRUE( TestLog::contains( "ACTIVITY: AUTO-RESTARTING" ) );
    tickFor( 1000000 );
    EXPECT_EQ( instance.length( u"GClient_commandQueue" ), 0 );
}

TEST_F( GTemplateTest, AnotherTimerAborts )
{
    load( "" );
    EXPECT_DEATH( engine->onTimer( nullptr ), "timer == _timer" );
}

// ---- The chat log.

TEST_F( GTemplateTest, ChatLinesAreAppended )
{
    load( "" );
    GHTTPHeaders message( u"CHAT" );
    message.set( u"From", u"ann@x" );
    message.addContent( "hello \xC3\xA9" );
    engine->logCHAT( u"log_test@x", message );
    GHTTPHeaders empty( u"CHAT" );
    empty.set( u"From", u"bob" );
    engine->logCHAT( u"log_test@x", empty );
    GString log;
    ASSERT_TRUE( GFileLoad( u"chatlogs/log_test@x_chat.txt", log ) );
    GFileDelete( u"chatlogs/log_test@x_chat.txt" );
    const int64_t bias = int64_t( GTimeGetBias( ) ) * 60000000;
    const std::string time = "[" + text( GTimeComposeTime( clock.now( ) - static_cast<uint64_t>( bias ) ) ) + "] ";
    EXPECT_EQ( log, time + "ann: hello \xC3\xA9\r\n" + time + "bob: \r\n" );
}

TEST_F( GTemplateTest, ANameThatIsAPathIsNoChatLog )
{
    load( "" );
    GHTTPHeaders message( u"CHAT" );
    for( const GWStringView name : { u"../up@x", u"a/b", u"", u"Bob@x" } )
    {
        TestLog::expect( "WARNING Invalid name '" + text( GWString( name ) ) + "' for a chat log, ignoring." );
        engine->logCHAT( GWString( name ), message );
    }
}
