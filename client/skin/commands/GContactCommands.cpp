#include "client/skin/commands/GContactCommands.h"

#include "client/skin/GTemplate.h"
#include "client/skin/nodes/GForeachNode.h"
#include "platform/GTime.h"
#include "protocol/GProtocol.h"

namespace
{
constexpr GWStringView LIST = u"Contact_Request_List";
constexpr GWStringView SIP_QUEUE = u"GSIPService_commandQueue";
constexpr uint64_t SETTLING_TIME = 500000;
} // namespace

GContactCommands::GContactCommands( GTemplate& engine ) : _instance( *engine.getInstance( ) ) {}

const GCommandRow<GContactCommands> GContactCommands::ROWS[] = {
    { { u"accept", u"", u"He becomes a buddy." }, true, &GContactCommands::_accept },
    { { u"refuse", u"", u"He does not; he may ask again." }, true, &GContactCommands::_refuse },
    { { u"block", u"", u"He does not, and is not heard of again." }, true, &GContactCommands::_block },
};

std::vector<GActionRow> GContactCommands::getActions( )
{
    return GCommandGetActions( ROWS );
}

void GContactCommands::execute( const GCommand& command )
{
    GWString rest = command.subpath;
    _contact = GParseTools_takeStep( rest );
    if( command.subpath.empty( ) ) _contact = GForeachNode::findEntry( command.source, LIST );
    if( _contact.empty( ) || !rest.empty( ) )
        GLOG( u"WARNING Malformed contact path '", command.path, u"', ignoring." );
    else if( !_instance.contains( LIST, _contact ) )
        GLOG( u"WARNING Cannot answer '", _contact, u"' who has not asked, ignoring." );
    else if( !GCommandRun( *this, ROWS, command, _contact ) )
        GLOG( u"WARNING Unknown contact action '", command.action, u"', ignoring." );
}

// A press that was meant for what stood there before, or that comes a second time.
bool GContactCommands::_mayAnswer( ) const
{
    return GTimeGetTime( ) - _instance.getTimestamp( LIST ) >= SETTLING_TIME &&
           !_instance.isSet( GConcat( _contact, u"_Contact_Status" ) );
}

void GContactCommands::_accept( const GCommand& )
{
    GHTTPHeaders message( GProtocol::ADDBUDDY );
    _send( message, u"Adding..." );
}

void GContactCommands::_refuse( const GCommand& )
{
    GHTTPHeaders message( GProtocol::CONTACTANSWER );
    message.set( GProtocol::ANSWER, GProtocol::REFUSE );
    _send( message, u"Refusing..." );
}

void GContactCommands::_block( const GCommand& )
{
    GHTTPHeaders message( GProtocol::CONTACTANSWER );
    message.set( GProtocol::ANSWER, GProtocol::BLOCK );
    _send( message, u"Blocking..." );
}

// The service takes a moment: the title says at once that the press was felt, until the service writes it anew.
void GContactCommands::_send( GHTTPHeaders& message, GWStringView status )
{
    if( !_mayAnswer( ) ) return;
    message.set( GProtocol::BUDDY_GUID, _contact );
    _instance.set( GConcat( _contact, u"_Contact_Status" ), status );
    _instance.set( u"Contact_Request_Title", status );
    _instance.enqueue( SIP_QUEUE, message );
}
