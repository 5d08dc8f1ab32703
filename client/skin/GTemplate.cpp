#include "client/skin/GTemplate.h"

#include "base/GUtil.h"
#include "client/drawing/GImageStack.h"
#include "client/skin/GSkinReload.h"
#include "client/skin/GTemplateFactory.h"
#include "client/skin/GUserName.h"
#include "client/skin/commands/GAccountCommands.h"
#include "client/skin/commands/GBuddyCommands.h"
#include "client/skin/commands/GContactCommands.h"
#include "client/skin/commands/GDeviceCommands.h"
#include "client/skin/commands/GFileCommands.h"
#include "client/skin/commands/GNodeCommands.h"
#include "client/skin/commands/GSystemCommands.h"
#include "client/skin/nodes/GNodeKeys.h"
#include "client/skin/nodes/GNodeTools.h"
#include "platform/GTime.h"

#include <algorithm>

namespace
{
constexpr int64_t TIMER_PERIOD = 50000;
// How long after the release of the key the media are turned down.
constexpr uint64_t TALK_STOP_DELAY = 500000;
constexpr uint64_t COUNTDOWN_LENGTH = 30000000;
// A message to a buddy without a session waits on his queue; older ones make room.
constexpr int LONGEST_BUDDY_QUEUE = 256;
constexpr GWStringView SKIN_PATH = u"/skin/";
constexpr GWStringView TALK_AGAIN = u"Talk_Again";
constexpr GWStringView HOTKEY_PROMPT = u"    (click here and press keys)";
constexpr GWStringView TALKING_TO_LIST = u"Talking_To_List";
constexpr GWStringView BUDDY_LIST = u"Local_Buddy_List";

bool startsWith( GWStringView text, GWStringView prefix )
{
    return text.size( ) >= prefix.size( ) && GCaseEquals( text.substr( 0, prefix.size( ) ), prefix );
}

// "a//b", also with a "?" as one of the two.
bool hasEmptyStep( GWStringView path )
{
    constexpr GWStringView DELIMITERS = u"/?";
    for( size_t i = 1; i < path.size( ); ++i )
        if( DELIMITERS.find( path[i - 1] ) != GWStringView::npos && DELIMITERS.find( path[i] ) != GWStringView::npos )
            return true;
    return false;
}

template <typename MODULE>
void run( GTemplate& engine, const GCommand& command )
{
    MODULE( engine ).execute( command );
}

// Path families in the order in which they are tested.
struct Family
{
    GWStringView prefix;
    void ( *run )( GTemplate& engine, const GCommand& command );
};
const Family families_[] = {
    { u"/buddies", run<GBuddyCommands> }, { u"/account", run<GAccountCommands> },
    { u"/dev", run<GDeviceCommands> },    { u"/fileservice", run<GFileCommands> },
    { u"/system", run<GSystemCommands> }, { u"/contacts", run<GContactCommands> },
};
} // namespace

std::vector<GActionFamily> GTemplate::getActions( )
{
    return {
        { u"/skin/NODE",
          u"A node of the skin, by its path. `..` is the parent of the node that issues the command; without a path it "
          u"acts on itself.",
          GNodeCommands::getActions( ) },
        { u"/buddies", u"The list of buddies.", GBuddyCommands::getManagementActions( ) },
        { u"/buddies/NAME", u"One buddy, by his id.", GBuddyCommands::getActions( ) },
        { u"/account", u"The account of this user.", GAccountCommands::getActions( ) },
        { u"/dev/audio", u"The microphone.", GDeviceCommands::getActions( ) },
        { u"/dev/video", u"The camera.", GDeviceCommands::getActions( ) },
        { u"/fileservice", u"Transfers of files, from a table of them.", GFileCommands::getActions( ) },
        { u"/system", u"The program.", GSystemCommands::getActions( ) },
        { u"/contacts",
          u"Who asks to become a buddy: the one whose repeated part holds the node that issues the command.",
          GContactCommands::getActions( ) },
        { u"/contacts/NAME", u"The same, by name.", GContactCommands::getActions( ) },
    };
}

GNameTable GTemplate::getNameTable( )
{
    static constexpr GNameRow ROWS[] = {
        { u"path", u"The node's own path." },
        { u"screenleft", u"The left edge of the desktop without its panels. These six are known when the whole skin is "
                         u"updated, not when a window updates by itself." },
        { u"screentop", u"Its top edge." },
        { u"screenright", u"Its right edge." },
        { u"screenbottom", u"Its bottom edge." },
        { u"screenwidth", u"Its width." },
        { u"screenheight", u"Its height." },
        { u"refresh", u"`true` during the command `refresh`." },
    };
    return ROWS;
}

GTemplate::GTemplate( GInstance* instance, const GWString& filename, const GSkinPlatform& platform )
    : _instance( instance ), _platform( platform ), _talkWatches( instance, [this] { _wakeTimer( ); } )
{
    GCALL( GTemplate );
    GPRECONDITION( instance );
    _timer = GTimerOpen( TIMER_PERIOD, this );
    _notify = GNotifyOpen( this );
    GAttributeStack::forgetWarnings( );
    _reload = std::make_unique<GSkinReload>( *this, filename, [this] { _wakeTimer( ); } );
    GTemplateFactory factory( _platform );
    GTRACK( GTemplateFactory, &factory );
    GASSERT_TEXT( _root = factory.load( _instance, this, _reload->getFile( ) ),
                  "_root = factory.load( _instance, this, filename )" );
    _update( GWString( ), _root, false );

    _instance->set( u"Misc_Hotkey_List", TALK_AGAIN );
    _instance->set( u"Working_Hotkey", _instance->get( u"Talk_Again_Hotkey" ) );
    command( u"(/system?assignhotkey+name=Talk_Again)" );
    _instance->set( u"Working_Hotkey", HOTKEY_PROMPT );
}

GTemplate::~GTemplate( )
{
    GASSERT( _root );
    delete _root;
    _root = nullptr;
    GTimerClose( _timer );
    GNotifyClose( _notify );
    for( const auto& [name, hotkey] : _hotkeys ) _platform.closeHotkey( hotkey );
}

void GTemplate::invariantTest( ) const
{
    GASSERT( _instance );
    GHeapObject::invariantTest( );
}

// ---- The two passes.

void GTemplate::_update( const GWString& path, GTemplateNode* node, bool refresh )
{
    GCALL( GTemplate );
    GAttributeStack stack( _instance, _notify );
    const GRect area = _platform.getWorkArea( );
    stack.set( u"screenleft", area.left );
    stack.set( u"screentop", area.top );
    stack.set( u"screenright", area.right );
    stack.set( u"screenbottom", area.bottom );
    stack.set( u"screenwidth", area.width( ) );
    stack.set( u"screenheight", area.height( ) );
    stack.set( u"path", path );
    if( refresh ) stack.set( u"refresh", true );
    if( !node->update( stack ) ) return;
    GImageStack images;
    node->render( images );
}

// ---- Another skin.

void GTemplate::reloadSkin( )
{
    _reload->request( );
    _wakeTimer( );
}

GTemplateNode* GTemplate::replaceRoot( GTemplateNode* root )
{
    GPRECONDITION( root );
    std::swap( root, _root );
    _update( GWString( ), _root, false );
    return root;
}

void GTemplate::onNotification( int, uint64_t )
{
    GCALL( GTemplate );
    _update( GWString( ), _root, false );
}

// ---- Nodes by path.

GTemplateNode* GTemplate::getNode( const GWString& path, GTemplateNode* relativeTo )
{
    GPRECONDITION( !path.empty( ) );
    // An empty step is a mistake of the skin, and is answered as one.
    const bool walkable = !hasEmptyStep( path );
    if( walkable && _root && startsWith( path, SKIN_PATH ) && path.size( ) > SKIN_PATH.size( ) )
        return _root->getChild( GWStringView( path ).substr( SKIN_PATH.size( ) ) );
    GTemplateNode* node = walkable && relativeTo && path.starts_with( u".." ) ? relativeTo : nullptr;
    GWStringView rest = path;
    while( node && rest.size( ) >= 2 && rest.starts_with( u".." ) )
    {
        node = node->getParent( );
        const size_t end = rest.find_first_of( u"/?" );
        rest = end == GWStringView::npos ? GWStringView( ) : rest.substr( end + 1 );
    }
    if( node ) return rest.empty( ) ? node : node->getChild( rest );
    GLOG( u"WARNING Requesting non-existent node '", path, u"', ignoring." );
    return nullptr;
}

GTemplateNode* GTemplate::findNode( const GWString& path )
{
    const bool below = startsWith( path, SKIN_PATH ) && path.size( ) > SKIN_PATH.size( );
    return below && path.find( u"//" ) == GWString::npos ? getNode( path, nullptr ) : nullptr;
}

// ---- Commands.

void GTemplate::executeCommand( const GWString& command, GTemplateNode* source, int reserved )
{
    GCALL( GTemplate );
    const GCommandCache::Menu menu = _commands.parse( command );
    if( menu->labels.empty( ) ) return;
    if( menu->isPlain( ) ) return _executeCommand( menu->commands.front( ), source, reserved );
    int choice = -1;
    {
        // A menu runs the message loop: the source must outlive it.
        const GNodeBusy busy;
        choice = _platform.executeMenu( menu->labels );
    }
    if( choice >= 0 && choice < static_cast<int>( menu->commands.size( ) ) )
        _executeCommand( menu->commands[static_cast<size_t>( choice )], source, reserved );
}

void GTemplate::_executeCommand( const std::vector<GCommandText>& commands, GTemplateNode* source, int )
{
    for( const GCommandText& text : commands ) _dispatch( GCommand( text, source ) );
}

void GTemplate::_dispatch( const GCommand& command )
{
    if( command.path.empty( ) )
    {
        if( command.source ) return GNodeCommands( *this, *command.source ).execute( command );
        GLOG( u"WARNING Missing target for action '", command.action, u"', ignoring." );
        return;
    }
    if( startsWith( command.path, u"/skin" ) || command.path.starts_with( u".." ) )
    {
        GTemplateNode* target = getNode( command.path, command.source );
        if( target ) return GNodeCommands( *this, *target ).execute( command );
        GLOG( u"WARNING Invalid path '", command.path, u"', ignoring." );
        return;
    }
    for( const Family& family : families_ )
        if( startsWith( command.path, family.prefix ) ) return family.run( *this, command );
    GLOG( u"WARNING Unknown path '", command.path, u"', ignoring." );
}

void GTemplate::broadcastToBuddy( const GWString& buddy, const GHTTPHeaders& message )
{
    GHTTPHeaders wrapper( u"DEVICEBROADCAST" );
    wrapper.addContent( message.serialize( ) );
    const GWString queue = GConcat( buddy, u"_commandQueue" );
    GString oldest;
    while( _instance->length( queue ) >= LONGEST_BUDDY_QUEUE ) _instance->dequeue( queue, oldest );
    _instance->enqueue( queue, wrapper );
}

void GTemplate::logCHAT( const GWString& buddy, const GHTTPHeaders& message )
{
    GCALL( GTemplate );
    const GWString name = GUserNameGetChatLog( buddy );
    if( name.empty( ) ) return;
    const int64_t bias = static_cast<int64_t>( GTimeGetBias( ) ) * 60000000;
    const GWString text = message.hasContent( ) ? GUTF8ToWide( message.getContent( 0 ) ) : GWString( );
    const GString line =
        GWideToUTF8( GConcat( u"[", GTimeComposeTime( GTimeGetTime( ) - static_cast<uint64_t>( bias ) ), u"] ",
                              GUserNameGetUser( message.get( u"From" ) ), u": ", text, u"\r\n" ) );
    GFileAppend( name, line.data( ), static_cast<int64_t>( line.size( ) ) );
}

// ---- Hotkeys.

bool GTemplate::_closeHotkey( const GWString& key )
{
    const auto found = _hotkeys.find( key );
    if( found == _hotkeys.end( ) ) return false;
    _platform.closeHotkey( found->second );
    _hotkeys.erase( found );
    // Nobody tells of the release of a key that is no longer ours: what it holds open ends here.
    if( key == GConcat( _heldHotkey, u"_Hotkey" ) ) _releaseHotkey( );
    return true;
}

void GTemplate::assignHotkey( const GWString& name, const GWString& text )
{
    const GWString key = GConcat( name, u"_Hotkey" );
    _closeHotkey( key );
    const GHotkey hotkey = _platform.openHotkey( text, name );
    if( !hotkey )
    {
        _instance->set( key, u"<key combination in use>" );
        return;
    }
    _hotkeys[key] = hotkey;
    _instance->set( key, text, true );
}

void GTemplate::clearHotkey( const GWString& name )
{
    const GWString key = GConcat( name, u"_Hotkey" );
    _closeHotkey( key );
    _instance->clear( key );
}

void GTemplate::onHotkeyDown( GHotkey, const GWString& name )
{
    GCALL( GTemplate );
    if( name == TALK_AGAIN )
        _talkAgain( );
    else if( _instance->contains( u"Local_Buddy_List", name ) )
        _talkTo( name );
    else
        GLOG( u"WARNING Unrecognized hotkey '", name, u"', ignoring." );
}

void GTemplate::onHotkeyUp( GHotkey, const GWString& name )
{
    GCALL( GTemplate );
    if( name == TALK_AGAIN )
        GLOG( u"STOPTALKAGAIN" );
    else if( _instance->contains( u"Local_Buddy_List", name ) )
        GLOG( u"STOPTALK(", name, u")" );
    else if( name != _heldHotkey ) // A buddy who has gone meanwhile.
        return;
    _releaseHotkey( );
    _updateHotkeys( );
}

void GTemplate::_holdHotkey( const GWString& name )
{
    _hotkeyDown = true;
    _heldHotkey = name;
}

void GTemplate::_releaseHotkey( )
{
    _hotkeyDown = false;
    _heldHotkey.clear( );
}

// ---- Talk.

void GTemplate::_talkAgain( )
{
    const GStringList talkToList = _getTalkAgainList( );
    GLOG( u"STARTTALKAGAIN(", GJoinList( talkToList ), u")" );
    if( !_instance->test( u"Audio_Capture_Online" ) )
    {
        GLOG( u"WARNING Trying to 'TALKAGAIN' but no audio device configured, ignoring." );
        return;
    }
    if( talkToList.empty( ) ) return;
    for( const GWString& buddy : talkToList ) _resetBuddyTalk( buddy, true );
    GVERIFY( talkToList == _lastTalkToList );
    _holdHotkey( GWString( TALK_AGAIN ) );
}

// Whoever has talked to nobody yet talks to the first buddy who is there: a key that does nothing looks broken.
GStringList GTemplate::_getTalkAgainList( )
{
    if( !_lastTalkToList.empty( ) || !_instance->isRobust( u"Robust_Client" ) ) return _lastTalkToList;
    GStringList buddies;
    _instance->get( u"Local_Buddy_List", buddies );
    buddies.remove_if( [this]( const GWString& buddy ) { return !_instance->test( GConcat( buddy, u"_Online" ) ); } );
    if( buddies.size( ) > 1 ) buddies.resize( 1 );
    return buddies;
}

void GTemplate::_publishTalkAgain( )
{
    const GStringList buddies = _getTalkAgainList( );
    _instance->set( u"Talk_Again_Buddy", buddies.empty( ) ? GWString( ) : buddies.front( ) );
}

void GTemplate::_talkTo( const GWString& name )
{
    GLOG( u"STARTTALK(", name, u")" );
    if( !_instance->test( u"Audio_Capture_Online" ) )
        GLOG( u"WARNING Cannot talk to '", name, u"' as no audio device is configured, ignoring." );
    else if( !_instance->test( GConcat( name, u"_Online" ) ) )
        GLOG( u"WARNING Cannot talk to '", name, u"' as buddy is not online, ignoring." );
    else
    {
        _resetBuddyTalk( name, true );
        _holdHotkey( name );
    }
}

void GTemplate::resetBuddyTalk( const GWString& buddy, bool enable )
{
    // A button of the skin was pressed by the mouse, or by the space key, which holds it as well.
    _spaceHolds = enable && !_platform.isLeftButtonDown( ) && GNodeKeys_isDown( GKEY_SPACE );
    _resetBuddyTalk( buddy, enable );
}

void GTemplate::_resetBuddyTalk( const GWString& buddy, bool enable )
{
    GCALL( GTemplate );
    GStringList devices;
    _instance->get( GConcat( buddy, u"_Device_List" ), devices );
    for( const GWString& device : devices ) _resetDeviceTalk( GConcat( buddy, u'@', device ), enable );
    if( !enable ) return;
    _instance->insert( TALKING_TO_LIST, buddy );
    _instance->get( TALKING_TO_LIST, _lastTalkToList );
}

void GTemplate::_resetDeviceTalk( const GWString& id, bool enable )
{
    const auto isChosen = [this]( GWStringView name, GWStringView text ) { return _instance->get( name ) == text; };
    const bool isPrivate = isChosen( u"Video_Privacy_Choice_Mode", u"Private - Allow nobody to see me" );
    const bool always = isChosen( u"Video_Privacy_Choice_When", u"Always" );
    const bool all = isChosen( u"Video_Privacy_Choice_Who", u"All my buddies" );
    const bool allowed = _instance->test( GConcat( id, u"_Video_Enabled" ) );
    const bool video = !isPrivate && ( enable || always ) && ( all || allowed );

    GHTTPHeaders message( u"RESET" );
    message.set( u"Buddy-Device-GUID", id );
    message.set( u"Video-FPS", enable ? 5 : 1 );
    message.set( u"Audio-Enable", enable ? u"true" : u"false" );
    message.set( u"Video-Enable", video ? u"true" : u"false" );
    _instance->enqueue( u"GVideoCaptureService_commandQueue", message );
}

void GTemplate::_updateHotkeys( )
{
    _publishTalkAgain( );
    const uint64_t now = GTimeGetTime( );
    GStringList talking;
    _instance->get( TALKING_TO_LIST, talking );
    _spaceHolds = _spaceHolds && GNodeKeys_isDown( GKEY_SPACE );
    const bool held = _hotkeyDown || _spaceHolds || _platform.isLeftButtonDown( );
    if( !talking.empty( ) && !held && !_instance->test( u"Talking_Hands_Free" ) )
    {
        GLOG( u"Hotkey up, stopping talk to '", GJoinList( talking ), u"'" );
        _instance->clear( TALKING_TO_LIST );
        // Whoever waits for his stop already keeps waiting beside the new ones.
        for( const GWString& buddy : talking )
            if( !GListContains( _talkToList, buddy ) ) _talkToList.push_back( buddy );
        talking.clear( );
        _talkStopTime = now;
    }
    if( _talkToList.empty( ) || now - _talkStopTime <= TALK_STOP_DELAY ) return;
    _talkStopTime = now;
    // A press within the delay leaves the stream up: that buddy is being talked to again.
    for( const GWString& buddy : _talkToList )
        if( !GListContains( talking, buddy ) ) _resetBuddyTalk( buddy, false );
    _talkToList.clear( );
}

// ---- Timer.

void GTemplate::onTimer( GTimer timer )
{
    GCALL( GTemplate );
    GASSERT( timer == _timer );
    _updateHotkeys( );
    _updateCountdown( );
    _watchTalk( );
    _reload->onTick( );
    if( _isTimerIdle( ) ) GTimerSetPeriod( _timer, 0 );
}

void GTemplate::_wakeTimer( )
{
    GTimerSetPeriod( _timer, TIMER_PERIOD );
}

bool GTemplate::_isTimerIdle( )
{
    return !_restartTime && _reload->isIdle( ) && _talkToList.empty( ) && !_instance->isSet( TALKING_TO_LIST );
}

// Whom the talk button reaches hangs on who is there.
void GTemplate::_watchTalk( )
{
    if( !GNodeTools_readValue( _instance, BUDDY_LIST, _watchedBuddies ) && !_watchedBuddies.empty( ) ) return;
    GStringVector names{ GWString( TALKING_TO_LIST ), GWString( BUDDY_LIST ), u"Robust_Client" };
    for( const GWString& buddy : GSplitList( _watchedBuddies ) ) names.push_back( GConcat( buddy, u"_Online" ) );
    _talkWatches.watch( std::move( names ) );
}

void GTemplate::setRestartTime( uint64_t time )
{
    _restartTime = time;
    _wakeTimer( );
}

void GTemplate::_updateCountdown( )
{
    const uint64_t now = GTimeGetTime( );
    if( !_restartTime || _restartTime >= now + COUNTDOWN_LENGTH ) return;
    if( _restartTime > now )
    {
        _instance->set( u"Seconds_Until_Auto_Restart", static_cast<int64_t>( ( _restartTime - now ) / 1000000 ) );
        if( _countdownOpen ) return;
        _countdownOpen = true;
        command( u"(/skin/window_countdown?open)" );
        return;
    }
    GLOG( u"ACTIVITY: AUTO-RESTARTING" );
    command( u"(/skin/window_countdown?close)" );
    command( u"(/system?restart)" );
    _restartTime = 0;
    _countdownOpen = false;
}
