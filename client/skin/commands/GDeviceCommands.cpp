#include "client/skin/commands/GDeviceCommands.h"

#include "client/skin/GTemplate.h"

namespace
{
constexpr GWStringView CAPTURE_QUEUE = u"GVideoCaptureService_commandQueue";
} // namespace

GDeviceCommands::GDeviceCommands( GTemplate& engine ) : _instance( *engine.getInstance( ) ) {}

const GCommandRow<GDeviceCommands> GDeviceCommands::ROWS[] = {
    { { u"startpreview", u"", u"Shows what the device takes." }, true, &GDeviceCommands::_startPreview },
    { { u"stoppreview", u"", u"Stops that." }, false, &GDeviceCommands::_stopPreview },
    { { u"reset", u"",
        u"From a list of devices: takes the ones in `Video_Capture_Device` and `Audio_Capture_Device`." },
      true,
      &GDeviceCommands::_reset },
    { { u"list", u"", u"Looks again for what is plugged in." }, false, &GDeviceCommands::_list },
};

std::vector<GActionRow> GDeviceCommands::getActions( )
{
    return GCommandGetActions( ROWS );
}

void GDeviceCommands::execute( const GCommand& command )
{
    if( !GCaseEquals( command.subpath, u"audio" ) && !GCaseEquals( command.subpath, u"video" ) )
    {
        GLOG( u"WARNING Tried to address non-existent device '", command.path, u"', ignoring." );
        return;
    }
    if( !GCommandRun( *this, ROWS, command, command.subpath ) )
        GLOG( u"WARNING Unknown '", command.path, u"' action '", command.action, u"', ignoring." );
}

void GDeviceCommands::_sendPreview( GWStringView verb, const GCommand& command )
{
    const GWStringView medium = GCaseEquals( command.subpath, u"audio" ) ? u"AUDIO" : u"VIDEO";
    _instance.enqueue( CAPTURE_QUEUE, GHTTPHeaders( GConcat( verb, medium, u"PREVIEW" ) ) );
}

void GDeviceCommands::_startPreview( const GCommand& command )
{
    _sendPreview( u"START", command );
}

void GDeviceCommands::_stopPreview( const GCommand& command )
{
    _sendPreview( u"STOP", command );
}

void GDeviceCommands::_reset( const GCommand& command )
{
    if( !command.list )
    {
        GLOG( u"WARNING Tried to 'reset' device '", command.path, u"' from non-list source, ignoring." );
        return;
    }
    GHTTPHeaders message( u"START" );
    for( const GWStringView name : { u"Video_Capture_Device", u"Audio_Capture_Device" } )
        message.set( name, _instance.get( name ) );
    _instance.enqueue( CAPTURE_QUEUE, message );
}

void GDeviceCommands::_list( const GCommand& )
{
    _instance.enqueue( CAPTURE_QUEUE, GHTTPHeaders( u"LISTDEVICES" ) );
}
