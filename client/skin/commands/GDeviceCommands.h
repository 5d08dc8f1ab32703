// "/dev": previews of the camera and the microphone, and choosing another one. User-interface thread.
#pragma once

#include "client/skin/commands/GCommandTable.h"

class GInstance;
class GTemplate;

class GDeviceCommands
{
public:
    explicit GDeviceCommands( GTemplate& engine );
    void execute( const GCommand& command );
    static std::vector<GActionRow> getActions( );

private:
    static const GCommandRow<GDeviceCommands> ROWS[];

    void _startPreview( const GCommand& command );
    void _stopPreview( const GCommand& command );
    void _reset( const GCommand& command );
    void _list( const GCommand& command );
    void _sendPreview( GWStringView verb, const GCommand& command );

    GInstance& _instance;
};
