// "/buddies": managing the list, talking, calling, chatting, and sharing files and the screen with one buddy. Everything that
// crosses to a service leaves as a message on its queue. User-interface thread.
#pragma once

#include "client/skin/commands/GCommandTable.h"
#include "runtime/GHTTPHeaders.h"

class GInstance;
class GTemplate;

class GBuddyCommands
{
public:
    explicit GBuddyCommands( GTemplate& engine );
    void execute( const GCommand& command );
    static std::vector<GActionRow> getActions( );
    static std::vector<GActionRow> getManagementActions( );

private:
    static const GCommandRow<GBuddyCommands> ROWS[];
    static const GCommandRow<GBuddyCommands> MANAGEMENT_ROWS[];

    void _executeManagement( const GCommand& command );
    void _addBuddy( const GCommand& command );
    void _talk( const GCommand& command );
    void _startTalkHandsFree( const GCommand& command );
    void _stopTalkHandsFree( const GCommand& command );
    void _reconnect( const GCommand& command );
    void _remove( const GCommand& command );
    void _call( const GCommand& command );
    void _hangup( const GCommand& command );
    void _pickup( const GCommand& command );
    void _chat( const GCommand& command );
    void _chatDone( const GCommand& command );
    void _chatLoad( const GCommand& command );
    void _sendFile( const GCommand& command );
    void _showScreen( const GCommand& command );
    void _showWindow( const GCommand& command );
    void _setRemoteControl( const GCommand& command );
    void _stopScreenFrom( const GCommand& command );
    void _stopScreenTo( const GCommand& command );

    // Tests the microphone; without one the user is told by the client.
    bool _canTalk( GWStringView action );
    void _talkNow( GWStringView action, bool handsFree );
    void _notifyClient( GWStringView method );
    void _chooseWindow( );
    GHTTPHeaders _message( GWStringView method ) const;
    GWString _name( GWStringView suffix ) const;
    void _broadcast( GWStringView method );
    void _run( GWStringView before, GWStringView after );

    GTemplate& _engine;
    GInstance& _instance;
    GWString _buddy;
};
