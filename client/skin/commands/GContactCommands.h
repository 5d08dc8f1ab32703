// "/contacts": the user's answer to those who ask to become buddies. Without a name in the path it is about the request whose part of
// a repetition over "Contact_Request_List" holds the node that issued the command. Only names on that list can be answered, and
// nothing for half a second after the list has changed: what was under the pointer may have moved. User-interface thread.
#pragma once

#include "client/skin/commands/GCommandTable.h"
#include "runtime/GHTTPHeaders.h"

class GInstance;
class GTemplate;

class GContactCommands
{
public:
    explicit GContactCommands( GTemplate& engine );
    void execute( const GCommand& command );
    static std::vector<GActionRow> getActions( );

private:
    static const GCommandRow<GContactCommands> ROWS[];

    void _accept( const GCommand& command );
    void _refuse( const GCommand& command );
    void _block( const GCommand& command );
    bool _mayAnswer( ) const;
    void _send( GHTTPHeaders& message, GWStringView status );

    GInstance& _instance;
    GWString _contact;
};
