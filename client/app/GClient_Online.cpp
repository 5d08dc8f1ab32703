// What the client does while it is online: hints about sound, finished transfers, and clicks on their bubbles.
#include "client/app/GClient.h"
#include "client/app/GClientNames.h"
#include "runtime/GInstance.h"

namespace
{
constexpr double LOW_VOLUME = 0.1;
constexpr double BUMPED_SPEAKER = 0.5;
constexpr double BUMPED_WAVE = 1.0;
} // namespace

bool GClient::_onOnlineCommand( const Input& in )
{
    if( in.is( u"LISTENINGTO" ) ) return _onListeningTo( in.headers );
    if( in.is( u"NOTIFYCANTTALK" ) ) return _onCantTalk( in.headers );
    if( in.is( u"NOTIFYREMOTECANTTALK" ) ) return _onRemoteCantTalk( in.headers );
    if( in.is( u"DEVICEBROADCAST" ) ) return _onDeviceBroadcast( in.headers );
    if( in.is( u"RECVFILECOMPLETE" ) ) return _onTransferComplete( in.headers, true );
    if( in.is( u"SENDFILECOMPLETE" ) ) return _onTransferComplete( in.headers, false );
    if( in.eventID == EVENT_SHOWTRANSFER ) return _showTransfer( );
    if( in.eventID == EVENT_UNMUTE ) return _unmute( );
    if( in.eventID == EVENT_BUMPVOLUME ) return _bumpVolume( );
    if( in.eventID == EVENT_CONFIGAUDIO ) return _configureAudio( );
    if( in.eventID == EVENT_PUSHTOTALK ) return _pushToTalk( );
    return false;
}

bool GClient::_onListeningTo( const GHTTPHeaders& command )
{
    const GWString buddy = command.get( u"User-GUID" );
    if( _platform.isMuted( ) )
        _bubble( u"Speakers are muted",
                 GConcat( u"You cannot hear ", buddy,
                          u" talking because your speakers are muted.  Click here to unmute your speakers." ),
                 EVENT_UNMUTE );
    else if( _platform.getVolume( ) < LOW_VOLUME )
        _bubble( u"Volume is very low",
                 GConcat( u"You might be unable to hear ", buddy,
                          u" talking because your volume is set very low.  Click here to bump up your volume." ),
                 EVENT_BUMPVOLUME );
    return true;
}

bool GClient::_onCantTalk( const GHTTPHeaders& command )
{
    GVERIFY_TEXT( !_instance->test( u"Audio_Capture_Online" ), "!_instance->test( L\"Audio_Capture_Online\" )" );
    _bubble( u"No microphone configured",
             GConcat( u"You cannot talk to ", command.get( u"User-GUID" ),
                      u" because you have no microphone configured.  Click here to configure your audio." ),
             EVENT_CONFIGAUDIO );
    return true;
}

bool GClient::_onRemoteCantTalk( const GHTTPHeaders& command )
{
    const GWString buddy = command.get( u"User-GUID" );
    _instance->set( u"GCE_ICONPTT_Buddy", buddy );
    _bubble( u"Buddy has no microphone configured",
             GConcat( u"You cannot call ", buddy,
                      u" because your buddy has no microphone configured.  Click here to 'push to talk'." ),
             EVENT_PUSHTOTALK );
    return true;
}

bool GClient::_onTransferComplete( const GHTTPHeaders& command, bool received )
{
    const GWString file = GClientGetBaseName( command.get( u"Path" ) );
    const GWString name = GClientGetUserName( command.get( u"Buddy-Device-GUID" ) );
    _bubble( u"File transfer complete",
             GConcat( received ? u"You have received '" : u"You have sent '", file, received ? u"' from " : u"' to ",
                      name, u".  Click here to open the file transfer dialog." ),
             EVENT_SHOWTRANSFER );
    return true;
}

bool GClient::_showTransfer( )
{
    GLOG( u"ACTIVITY: ", u"SHOWTRANSFER" );
    _template->command( GCLIENT_SHOW_TRANSFERS );
    return true;
}

bool GClient::_unmute( )
{
    GLOG( u"ACTIVITY: ", u"UNMUTE" );
    _platform.setMute( false );
    return true;
}

bool GClient::_bumpVolume( )
{
    GLOG( u"ACTIVITY: ", u"BUMPVOLUME" );
    _platform.setVolumeLines( BUMPED_SPEAKER, BUMPED_WAVE );
    return true;
}

bool GClient::_configureAudio( )
{
    GLOG( u"ACTIVITY: ", u"CONFIGAUDIO" );
    _template->command(
        u"(/skin/window_options/copy/border/inside/wizard?jump+target=audio;/skin/window_options?open)" );
    return true;
}

bool GClient::_pushToTalk( )
{
    const GWString buddy = _instance->get( u"GCE_ICONPTT_Buddy" );
    if( !GVERIFY( !buddy.empty( ) ) ) return true;
    _template->command( GConcat( u"(/buddies/", buddy, u"?starttalkhandsfree" ) );
    return true;
}
