#include "client/skin/commands/GBuddyCommands.h"

#include "base/GForeignText.h"
#include "client/skin/GTemplate.h"
#include "client/skin/GUserName.h"
#include "client/skin/nodes/GEditNode.h"

#include <algorithm>

namespace
{
constexpr GWStringView SIP_QUEUE = u"GSIPService_commandQueue";
constexpr GWStringView SCREEN_QUEUE = u"GScreenService_commandQueue";
constexpr GWStringView CLIENT_QUEUE = u"GClient_commandQueue";
// A talk of this many lines is kept for the window that shows it.
constexpr int LONGEST_CHAT = 10000;
constexpr size_t LONGEST_TITLE = 100;

GWString getBaseName( const GWString& path )
{
    const size_t slash = path.find_last_of( u"/\\" );
    return slash == GWString::npos ? path : path.substr( slash + 1 );
}

// Titles come from other programs: nothing in them may end the label.
GWString getMenuTitle( GWString title )
{
    std::erase_if( title, []( char16_t character ) { return character == u'(' || character == u')'; } );
    return GForeignText( title, LONGEST_TITLE );
}
} // namespace

GBuddyCommands::GBuddyCommands( GTemplate& engine ) : _engine( engine ), _instance( *engine.getInstance( ) ) {}

const GCommandRow<GBuddyCommands> GBuddyCommands::ROWS[] = {
    { { u"talk", u"", u"Talks while the button or key is held." }, true, &GBuddyCommands::_talk },
    { { u"starttalkhandsfree", u"", u"Talks until told to stop." }, true, &GBuddyCommands::_startTalkHandsFree },
    { { u"stoptalkhandsfree", u"", u"Stops that." }, false, &GBuddyCommands::_stopTalkHandsFree },
    { { u"reconnect", u"", u"Connects anew." }, true, &GBuddyCommands::_reconnect },
    { { u"remove", u"", u"Takes him off the list." }, true, &GBuddyCommands::_remove },
    { { u"call", u"", u"Rings, and opens the call window." }, true, &GBuddyCommands::_call },
    { { u"hangup", u"reason", u"Ends or declines a call; `reason` is `done`, `cancel` or a text of the skin's own." },
      true,
      &GBuddyCommands::_hangup },
    { { u"pickup", u"", u"Takes the call." }, true, &GBuddyCommands::_pickup },
    { { u"chat", u"action,message",
        u"Sends the text of the edit that issued it, or `message`. `action`: `send` for a line; any other, such as "
        u"`start` and `cancel`, tells of typing." },
      false,
      &GBuddyCommands::_chat },
    { { u"chatdone", u"", u"Tells that the chat window was closed." }, false, &GBuddyCommands::_chatDone },
    { { u"chatload", u"", u"Opens the log of the chat." }, true, &GBuddyCommands::_chatLoad },
    { { u"sendfile", u"", u"Asks for a file and offers it." }, true, &GBuddyCommands::_sendFile },
    { { u"showscreen", u"", u"Shows him the whole screen." }, true, &GBuddyCommands::_showScreen },
    { { u"showwindow", u"id", u"Shows him one window; without `id` a menu of them comes." },
      true,
      &GBuddyCommands::_showWindow },
    { { u"setremotecontrol", u"enable", u"Lets him use mouse and keys, or not: `enable` 1 or 0." },
      true,
      &GBuddyCommands::_setRemoteControl },
    { { u"stopscreenfrom", u"", u"Ends his screen here." }, true, &GBuddyCommands::_stopScreenFrom },
    { { u"stopscreento", u"", u"Ends this screen there." }, true, &GBuddyCommands::_stopScreenTo },
};

std::vector<GActionRow> GBuddyCommands::getActions( )
{
    return GCommandGetActions( ROWS );
}

void GBuddyCommands::execute( const GCommand& command )
{
    if( command.subpath.empty( ) ) return _executeManagement( command );
    GWString rest = command.subpath;
    _buddy = GParseTools_takeStep( rest );
    // What is no name becomes no queue, value, path or command.
    if( _buddy.empty( ) || !rest.empty( ) || !GCaseEquals( _buddy, GSanitizeName( _buddy ) ) )
    {
        GLOG( u"WARNING Malformed buddy path '", command.path, u"', ignoring." );
        return;
    }
    if( !GCommandRun( *this, ROWS, command, _buddy ) )
        GLOG( u"WARNING Unknown buddy action '", command.action, u"', ignoring." );
}

const GCommandRow<GBuddyCommands> GBuddyCommands::MANAGEMENT_ROWS[] = {
    { { u"addbuddy", u"", u"Asks for the buddy named by `Add_Buddy_GUID`; `Add_Buddy_Status` tells how it goes." },
      false,
      &GBuddyCommands::_addBuddy },
};

std::vector<GActionRow> GBuddyCommands::getManagementActions( )
{
    return GCommandGetActions( MANAGEMENT_ROWS );
}

void GBuddyCommands::_executeManagement( const GCommand& command )
{
    if( !GCommandRun( *this, MANAGEMENT_ROWS, command, command.path ) )
        GLOG( u"WARNING Unknown buddy-management action '", command.action, u"', ignoring." );
}

void GBuddyCommands::_addBuddy( const GCommand& )
{
    GWString buddy = GSanitizeName( _instance.get( u"Add_Buddy_GUID" ) );
    GLOG( u"ACTIVITY: addbuddy '", buddy, u"'" );
    if( buddy.empty( ) )
    {
        _instance.set( u"Add_Buddy_Status", u"You gots to type first, dawg." );
        GLOG( u"WARNING Trying to add null buddy, ignoring." );
        return;
    }
    buddy = GUserNameComplete( _instance, buddy );
    if( buddy == _instance.get( u"Local_User_GUID" ) )
    {
        _instance.set( u"Add_Buddy_Status", u"Nice try, buddy." );
        GLOG( u"WARNING Trying to add self as buddy, ignoring." );
        return;
    }
    GHTTPHeaders message( u"ADDBUDDY" );
    message.set( u"Buddy-GUID", buddy );
    _instance.enqueue( SIP_QUEUE, message );
    _instance.set( u"Add_Buddy_Status", u"Verifying..." );
}

GWString GBuddyCommands::_name( GWStringView suffix ) const
{
    return GConcat( _buddy, suffix );
}

GHTTPHeaders GBuddyCommands::_message( GWStringView method ) const
{
    GHTTPHeaders message( method );
    message.set( u"Buddy-GUID", _buddy );
    return message;
}

void GBuddyCommands::_broadcast( GWStringView method )
{
    _engine.broadcastToBuddy( _buddy, GHTTPHeaders( method ) );
}

void GBuddyCommands::_run( GWStringView before, GWStringView after )
{
    _engine.command( GConcat( before, _buddy, after ) );
}

void GBuddyCommands::_notifyClient( GWStringView method )
{
    GHTTPHeaders message( method );
    message.set( u"User-GUID", _buddy );
    _instance.enqueue( CLIENT_QUEUE, message );
}

bool GBuddyCommands::_canTalk( GWStringView action )
{
    if( _instance.test( u"Audio_Capture_Online" ) ) return true;
    GLOG( u"WARNING Trying to '", action, u"' to buddy '", _buddy, u"' but no audio capture configured, ignoring." );
    _notifyClient( u"NOTIFYCANTTALK" );
    return false;
}

void GBuddyCommands::_talkNow( GWStringView action, bool handsFree )
{
    if( !_canTalk( action ) ) return;
    _instance.set( u"Talking_Hands_Free", handsFree ? 1 : 0 );
    _engine.resetBuddyTalk( _buddy, true );
}

void GBuddyCommands::_talk( const GCommand& )
{
    _talkNow( u"talk", false );
}

void GBuddyCommands::_startTalkHandsFree( const GCommand& )
{
    _talkNow( u"starttalkhandsfree", true );
}

void GBuddyCommands::_stopTalkHandsFree( const GCommand& )
{
    _instance.set( u"Talking_Hands_Free", 0 );
}

void GBuddyCommands::_reconnect( const GCommand& )
{
    _instance.enqueue( SIP_QUEUE, _message( u"RECONNECTBUDDY" ) );
}

void GBuddyCommands::_remove( const GCommand& )
{
    _instance.enqueue( SIP_QUEUE, _message( u"REMOVEBUDDY" ) );
}

void GBuddyCommands::_call( const GCommand& )
{
    if( !_canTalk( u"call" ) ) return;
    if( !_instance.test( _name( u"_Audio_Enabled" ) ) )
    {
        GLOG( u"WARNING Trying to 'call' to buddy '", _buddy,
              u"' but remote side has no audio capture configured, ignoring." );
        _notifyClient( u"NOTIFYREMOTECANTTALK" );
        return;
    }
    _broadcast( u"CALLINVITE" );
    _instance.set( _name( u"_Call_State" ), u"calling" );
    _instance.set( _name( u"_Call_Status" ), GConcat( u"Calling ", _buddy, u"..." ) );
    _run( u"(/skin/foreach_call/window_", u"?open)" );
}

void GBuddyCommands::_hangup( const GCommand& command )
{
    const GWString reason = command.get( u"reason" );
    GHTTPHeaders message( u"CALLCANCEL" );
    message.set( u"Reason", reason );
    _engine.broadcastToBuddy( _buddy, message );
    _instance.clear( _name( u"_Call_State" ) );
    if( reason == u"done" )
        _instance.set( _name( u"_Call_Status" ), u"Call complete." );
    else
        _instance.clear( _name( u"_Call_Status" ) );
    _run( u"(/buddies/", u"?stoptalkhandsfree)" );
}

void GBuddyCommands::_pickup( const GCommand& )
{
    _broadcast( u"CALLACCEPT" );
    _instance.set( _name( u"_Call_State" ), u"talking" );
    _instance.clear( _name( u"_Call_Status" ) );
    _run( u"(/buddies/", u"?starttalkhandsfree)" );
}

void GBuddyCommands::_chat( const GCommand& command )
{
    const GWString action = command.get( u"action" );
    const GWString text = command.edit ? command.edit->getText( ) : command.get( u"message" );
    // The return key in an empty field says nothing.
    if( action == u"send" && GTrim( text ).empty( ) && _instance.isRobust( u"Robust_Client" ) ) return;
    GHTTPHeaders message( u"CHAT" );
    message.set( u"From", _instance.get( u"Local_User_GUID" ) );
    message.set( u"Action", action );
    message.addContent( GWideToUTF8( GForeignTextShown( text ) ) );
    _engine.broadcastToBuddy( _buddy, message );
    if( action != u"send" ) return;
    const GWString queue = _name( u"_Chat_Queue" );
    GString oldest;
    while( _instance.length( queue ) >= LONGEST_CHAT ) _instance.dequeue( queue, oldest );
    _instance.enqueue( queue, message );
    _engine.logCHAT( _buddy, message );
}

void GBuddyCommands::_chatDone( const GCommand& )
{
    _broadcast( u"CHATDONE" );
}

void GBuddyCommands::_chatLoad( const GCommand& )
{
    const GWString name = GUserNameGetChatLog( _buddy );
    GWString reason;
    if( name.empty( ) || _engine.getPlatform( ).openDocument( name, reason ) ) return;
    // What has been said already is never written over.
    constexpr std::string_view NOTHING = "(empty chat log)\r\n";
    if( !GFileExists( name ) ) GFileSave( name, NOTHING.data( ), static_cast<int64_t>( NOTHING.size( ) ) );
    if( !_engine.getPlatform( ).openDocument( name, reason ) )
        GLOG( u"WARNING Can't open chat log '", name, u"' ('", reason, u"'), ignoring." );
}

void GBuddyCommands::_sendFile( const GCommand& )
{
    const GWString path = _engine.getPlatform( ).chooseFile( GConcat( u"Please choose the file to send to ", _buddy ) );
    if( path.empty( ) || !GFileExists( path ) )
    {
        GLOG( u"WARNING Cannot send file '", path, u"', ignoring." );
        return;
    }
    GHTTPHeaders message( u"SENDFILE" );
    message.set( u"Filename", getBaseName( path ) );
    message.set( u"Path", path );
    _engine.broadcastToBuddy( _buddy, message );
    _engine.command( u"(/skin/window_options/copy/border/inside/wizard?jump+target=file;/skin/window_options?open)" );
}

void GBuddyCommands::_showScreen( const GCommand& )
{
    _broadcast( u"SHARESCREEN" );
}

void GBuddyCommands::_showWindow( const GCommand& command )
{
    const int64_t id = command.calc( u"id" );
    if( id == 0 ) return _chooseWindow( );
    _engine.getPlatform( ).raiseWindow( static_cast<uint32_t>( id ) );
    GHTTPHeaders message( u"SHARESCREEN" );
    message.set( u"Window-ID", id );
    _engine.broadcastToBuddy( _buddy, message );
}

void GBuddyCommands::_chooseWindow( )
{
    std::map<uint32_t, GWString> windows;
    _engine.getPlatform( ).listWindows( windows );
    GWString menu;
    for( const auto& [id, title] : windows )
        menu += GConcat( u"Show '", getMenuTitle( title ), u"'(/buddies/", _buddy, u"?showwindow+id=", id, u");" );
    if( menu.empty( ) )
        GLOG( u"WARNING Cannot share window because no windows found, ignoring." );
    else
        _engine.command( menu );
}

void GBuddyCommands::_setRemoteControl( const GCommand& command )
{
    GHTTPHeaders message = _message( u"SETREMOTECONTROL" );
    message.set( u"Enable", command.get( u"enable" ) );
    _instance.enqueue( SCREEN_QUEUE, message );
}

void GBuddyCommands::_stopScreenFrom( const GCommand& )
{
    _instance.enqueue( SCREEN_QUEUE, _message( u"CLOSERECV" ) );
}

void GBuddyCommands::_stopScreenTo( const GCommand& )
{
    _instance.enqueue( SCREEN_QUEUE, _message( u"CLOSESEND" ) );
}
