// What buddies' devices send to each other's users: calls, chat, offers of files and screens. Everything here comes from strangers:
// ids are tested before they become names or commands, and texts never become commands.
#include "client/app/GClient.h"
#include "client/app/GClientNames.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

namespace
{
constexpr int MAX_OPEN_OFFERS = 4;
constexpr int MAX_CHAT_LINES = 1000;
constexpr char16_t FILE_QUEUE[] = u"GFileService_commandQueue";
} // namespace

bool GClient::_onDeviceBroadcast( const GHTTPHeaders& command )
{
    struct Row
    {
        const char16_t* method;
        void ( GClient::*handler )( const Broadcast& broadcast );
    };
    static constexpr Row ROWS[] = {
        { u"CALLINVITE", &GClient::_onCallInvite },
        { u"CALLCANCEL", &GClient::_onCallCancel },
        { u"CALLACCEPT", &GClient::_onCallAccept },
        { u"CHATDONE", &GClient::_onChatDone },
        { u"CHAT", &GClient::_onChat },
        { u"SENDFILE", &GClient::_onSendFile },
        { u"CANCELSENDFILE", &GClient::_onCancelSendFile },
        { u"SHARESCREEN", &GClient::_onShareScreen },
    };
    Broadcast broadcast;
    if( !_readBroadcast( command, broadcast ) ) return true;
    for( const Row& row : ROWS )
        if( broadcast.message.isMethod( row.method ) )
        {
            ( this->*row.handler )( broadcast );
            return true;
        }
    GLOG( u"WARNING Received unknown request '", broadcast.message.getMethod( ), u"' via 'DEVICEBROADCAST' from '",
          broadcast.from, u"', ignoring." );
    return true;
}

bool GClient::_readBroadcast( const GHTTPHeaders& command, Broadcast& broadcast ) const
{
    broadcast.from = command.get( GProtocol::FROM );
    const GWString device = command.get( GProtocol::FROM_DEVICE_GUID );
    if( !command.hasContent( ) || !GValidUserID( broadcast.from ) || !GValidDeviceID( device ) )
    {
        GLOG( u"WARNING Received malformed 'DEVICEBROADCAST' from '", broadcast.from, u"', ignoring." );
        return false;
    }
    broadcast.device = device;
    broadcast.prefix = GConcat( broadcast.from, u"@", device );
    const GWString sendFrom = _instance->get( GConcat( broadcast.prefix, u"_Send_From" ) );
    const GWString sendTo = _instance->get( GConcat( broadcast.prefix, u"_Send_To" ) );
    const GWString recvFrom = _instance->get( GConcat( broadcast.prefix, u"_Recv_From" ) );
    GVERIFY( !sendFrom.empty( ) && !sendTo.empty( ) && !recvFrom.empty( ) );
    broadcast.sendFrom = sendFrom;
    broadcast.sendTo = sendTo;
    broadcast.recvFrom = recvFrom;
    if( broadcast.message.deserialize( command.getContent( 0 ) ) ) return true;
    GLOG( u"WARNING Unable to deserialize payload via 'DEVICEBROADCAST' from '", broadcast.from, u"', ignoring." );
    return false;
}

// ---- Calls.

// One ringing call for each buddy: what rings already does not ring again.
void GClient::_onCallInvite( const Broadcast& broadcast )
{
    const GWString state = GConcat( broadcast.from, u"_Call_State" );
    if( GCaseEquals( _instance->get( state ), u"ringing" ) ) return;
    if( GCaseEquals( _instance->get( state ), u"calling" ) )
        _crossedCalls.insert( broadcast.from );
    else
        _crossedCalls.erase( broadcast.from );
    _instance->set( state, u"ringing" );
    _instance->set( GConcat( broadcast.from, u"_Call_Status" ),
                    GConcat( GClientGetUserName( broadcast.from ), u" is calling." ) );
    _template->command( GConcat( u"(/skin/foreach_call/window_", broadcast.from, u"?open)" ) );
    _platform.playSound( u"phone.wav" );
}

void GClient::_onCallCancel( const Broadcast& broadcast )
{
    const GWString& from = broadcast.from;
    const GWString name = GClientGetUserName( from );
    const GWString status = GConcat( from, u"_Call_Status" );
    const GWString reason = broadcast.message.get( u"Reason" );
    if( _isRobust( ) && _takeOwnCall( from ) ) _stopOtherDevices( broadcast );
    _instance->set( GConcat( from, u"_Call_State" ), u"declined" );
    _template->command( GConcat( u"(/buddies/", from, u"?stoptalkhandsfree)" ) );
    if( GCaseEquals( reason, u"chat" ) )
    {
        _template->command( GConcat( u"(/skin/foreach_call/window_", from, u"?close)" ) );
        _template->command( GConcat( u"(/skin/foreach_chat/window_", from, u"?open)" ) );
    }
    else if( GCaseEquals( reason, u"done" ) )
        _instance->set( status, GConcat( name, u" is done." ) );
    else
        _instance->set( status, GConcat( name, u" has declined." ) );
}

// An accept goes to all devices of this user: with the remedy only the one that calls begins to talk.
void GClient::_onCallAccept( const Broadcast& broadcast )
{
    if( _isRobust( ) )
    {
        if( !_takeOwnCall( broadcast.from ) )
        {
            GLOG( u"'", broadcast.from, u"' has accepted a call that was not made here, ignoring." );
            return;
        }
        _stopOtherDevices( broadcast );
    }
    _instance->set( GConcat( broadcast.from, u"_Call_State" ), u"talking" );
    _instance->clear( GConcat( broadcast.from, u"_Call_Status" ) );
    _template->command( GConcat( u"(/buddies/", broadcast.from, u"?starttalkhandsfree)" ) );
}

// True once, when this device is calling the buddy; also when his own call has crossed ours.
bool GClient::_takeOwnCall( const GWString& buddy )
{
    const GWString state = _instance->get( GConcat( buddy, u"_Call_State" ) );
    const bool crossed = _crossedCalls.erase( buddy ) > 0 && GCaseEquals( state, u"ringing" );
    return crossed || GCaseEquals( state, u"calling" );
}

// One device has answered: the buddy's others are told that the call is over. They know no better word for it.
void GClient::_stopOtherDevices( const Broadcast& broadcast )
{
    GHTTPHeaders cancel( u"CALLCANCEL" );
    cancel.set( u"Reason", u"done" );
    GHTTPHeaders wrapper( u"DEVICEBROADCAST" );
    wrapper.set( u"Except-Device-GUID", broadcast.device );
    wrapper.addContent( cancel.serialize( ) );
    _instance->enqueue( GConcat( broadcast.from, u"_commandQueue" ), wrapper );
}

// ---- Chat.

void GClient::_onChatDone( const Broadcast& broadcast )
{
    _template->command( GConcat( u"(/skin/foreach_chat/window_", broadcast.from, u"?close" ) );
}

void GClient::_onChat( const Broadcast& broadcast )
{
    const GWString action = broadcast.message.get( u"Action" );
    const GWString status = GConcat( broadcast.from, u"_Chat_Status" );
    if( GCaseEquals( action, u"send" ) )
    {
        if( !broadcast.message.hasContent( ) )
        {
            GLOG( u"WARNING Received chat without text from '", broadcast.from, u"', ignoring." );
            return;
        }
        // The line is that of the device that sent it, whatever it says of itself.
        GHTTPHeaders line = broadcast.message;
        line.set( GProtocol::FROM, broadcast.from );
        const GWString queue = GConcat( broadcast.from, u"_Chat_Queue" );
        GString oldest;
        while( _instance->length( queue ) >= MAX_CHAT_LINES ) _instance->dequeue( queue, oldest );
        _instance->enqueue( queue, line );
        _instance->clear( status );
        _template->logCHAT( broadcast.from, line );
    }
    else if( GCaseEquals( action, u"start" ) )
        _instance->set( status, GConcat( GClientGetUserName( broadcast.from ), u" is typing..." ) );
    else if( GCaseEquals( action, u"cancel" ) )
        _instance->clear( status );
    else
        GLOG( u"WARNING Invalid chat action '", action, u"', ignoring." );
}

// ---- Files and screens.

// The question is a modal one: further messages come while it is open, and with them further offers.
void GClient::_onSendFile( const Broadcast& broadcast )
{
    const GWString fileID = broadcast.message.get( u"File-ID" );
    int& openOffers = _openOffers[broadcast.from];
    if( openOffers >= MAX_OPEN_OFFERS )
    {
        GLOG( u"WARNING Too many open offers of files from '", broadcast.from, u"', ignoring." );
        return;
    }
    ++openOffers;
    const GWString filename = GClientGetBaseName( broadcast.message.get( GProtocol::FILENAME ) );
    const GWString path = _platform.chooseFileSave(
        GConcat( u"Please choose where to save the file from ", GClientGetUserName( broadcast.from ) ), filename );
    if( --_openOffers[broadcast.from] == 0 ) _openOffers.erase( broadcast.from );
    if( path.empty( ) )
    {
        GHTTPHeaders cancel( u"CANCELSENDFILE" );
        cancel.set( u"File-ID", fileID );
        _template->broadcastToBuddy( broadcast.from, cancel );
        return;
    }
    GHTTPHeaders receive( u"RECVFILE" );
    receive.set( u"File-ID", fileID );
    receive.set( u"Path", path );
    receive.set( u"Send-From", broadcast.sendFrom );
    receive.set( u"Send-To", broadcast.sendTo );
    receive.set( u"Buddy-Device-GUID", broadcast.prefix );
    _instance->enqueue( FILE_QUEUE, receive );
    _template->command( GCLIENT_SHOW_TRANSFERS );
}

void GClient::_onCancelSendFile( const Broadcast& broadcast )
{
    GHTTPHeaders cancel( u"CANCEL" );
    cancel.set( u"File-ID", broadcast.message.get( u"File-ID" ) );
    _instance->enqueue( FILE_QUEUE, cancel );
}

void GClient::_onShareScreen( const Broadcast& broadcast )
{
    GLOG( u"Receiving screen share from '", broadcast.from, u"'" );
    GHTTPHeaders open( u"OPENRECV" );
    open.set( GProtocol::BUDDY_GUID, broadcast.from );
    open.set( u"Send-To", broadcast.sendTo );
    open.set( u"Send-From", broadcast.sendFrom );
    open.set( u"Recv-From", broadcast.recvFrom );
    open.set( u"SSRC", broadcast.message.get( u"SSRC" ) );
    open.set( u"Window-ID", broadcast.message.get( u"Window-ID" ) );
    _instance->enqueue( u"GScreenService_commandQueue", open );
}
