#include "client/media/GVideoCaptureService.h"

#include "client/drawing/GImageGDI.h"
#include "client/drawing/GImageTools.h"
#include "platform/GTime.h"

#include <algorithm>

namespace
{
constexpr int LOOP_MS = 50;
// A command ends the rest at once.
constexpr int REST_MS = 5000;
constexpr int PRIORITY = 2;
// The remedy's: two codec frames, the least that a receiver can play. 0 is the letter's.
constexpr int LATENCY_MS = 15;
constexpr char16_t QUEUE[] = u"GVideoCaptureService_commandQueue";
constexpr char16_t NO_AUDIO[] = u"(none - disable audio capture)";
constexpr char16_t NO_VIDEO[] = u"(none - disable video capture)";
} // namespace

GVideoCaptureService::GVideoCaptureService( GInstance* instance, GMegaPort* port )
    : _instance( instance ), _port( port ),
      _commandEvent( GEventOpen( ) ), _audio{ GCaptureMedium::audio, u"Audio", NO_AUDIO }, _video{
                                                                                               GCaptureMedium::video,
                                                                                               u"Video", NO_VIDEO }
{
    _instance->setWaker( QUEUE, _commandEvent );
    _setWaker( _commandEvent );
}

GVideoCaptureService::~GVideoCaptureService( )
{
    stop( true );
    _instance->setWaker( QUEUE, nullptr );
    GEventClose( _commandEvent );
    GASSERT( !_localCapture );
    GASSERT_TEXT( !_recorder.isOpen( ), "!_recorder" );
}

void GVideoCaptureService::_bGThreadObject_safe_onStartup( )
{
    GThreadSetPriority( PRIORITY );
    _listDevices( );
    _enqueueStart( );
    GLOGIF( 'v', u"Starting local capture" );
    _localCapture = GSAFENEW( GLocalCapture, ( _instance ) );
    _localCapture->update( true );
}

void GVideoCaptureService::_listDevices( )
{
    GLOGIF( 'v', u"Enumerating audio and video devices" );
    GStringList audioList;
    GStringList videoList;
    GAVCaptureGetDeviceList( audioList, videoList );
    const GWString clip = _instance->get( u"avi_source" );
    if( !clip.empty( ) )
    {
        audioList.push_front( clip );
        videoList.push_front( clip );
    }
    _publishDevices( audioList, _audio );
    _publishDevices( videoList, _video );
}

// The present choice stands first, where a skin's list shows it.
void GVideoCaptureService::_publishDevices( GStringList devices, Medium& medium )
{
    medium.present = devices;
    medium.retry.onList( medium.isPresent( ), GTimeGetTime( ) );
    const GWString choice = GConcat( medium.name, u"_Capture_Device" );
    if( _instance->isSet( choice ) )
    {
        const GWString name = _instance->get( choice );
        devices.remove( name );
        devices.remove( GWString( medium.none ) );
        devices.push_front( name );
        if( name != medium.none ) devices.emplace_back( medium.none );
    }
    else
        devices.emplace_front( medium.none );
    const bool isAudio = medium.medium == GCaptureMedium::audio;
    _instance->set( isAudio ? u"Available_Audio_Capture_Devices" : u"Available_Video_Capture_Devices", devices );
}

void GVideoCaptureService::_enqueueStart( )
{
    // A clip given at the command line stands in for camera and microphone of this run.
    const GWString clip = _instance->get( u"avi_source" );
    const GWString audio = clip.empty( ) ? _instance->get( u"Audio_Capture_Device" ) : clip;
    const GWString video = clip.empty( ) ? _instance->get( u"Video_Capture_Device" ) : clip;
    GLOGIF( 'v', u"Starting audio/video capture: audio='", audio, u"', video='", video );
    GHTTPHeaders command( u"START" );
    command.set( u"Audio_Capture_Device", audio );
    command.set( u"Video_Capture_Device", video );
    _instance->enqueue( QUEUE, command );
}

int GVideoCaptureService::_bGThreadObject_safe_onLoop( )
{
    GString item;
    while( _instance->dequeue( QUEUE, item ) )
    {
        GHTTPHeaders command;
        if( command.deserialize( item ) )
            _onCommand( command );
        else
            GLOG( u"WARNING Malformed command sent to 'GVideoCaptureService_commandQueue', ignoring." );
    }
    if( _shared ) _lookAtDevices( );
    _localCapture->update( false );
    const int rest = _localCapture->isWaitingForPicture( ) ? LOOP_MS : REST_MS;
    const uint64_t now = GTimeGetTime( );
    return _audio.retry.getRest( now, _video.retry.getRest( now, rest ) );
}

void GVideoCaptureService::_bGThreadObject_safe_onShutdown( )
{
    GAVCaptureWatchDevices( nullptr );
    _isWatching = false;
    GLOGIF( 'v', u"Stopping local capture" );
    if( _recorder.isOpen( ) ) _unsubscribeLocal( );
    delete _localCapture;
    _localCapture = nullptr;
    GLOGIF( 'v', _streams.size( ), u" capture streams on close, stopping." );
    while( !_streams.empty( ) ) _deleteStream( _streams.begin( ) );
    _unshare( );
    _untreat( );
    _recorder.close( );
}

void GVideoCaptureService::_onCommand( const GHTTPHeaders& command )
{
    const GWString method = command.getMethod( );
    if( method == u"START" ) return _onStart( command );
    if( method == u"LISTDEVICES" ) return _listDevices( );
    if( !_recorder.isOpen( ) )
    {
        GLOG( u"WARNING Unable to execute command '", method, u"' because recorder does not exist, ignoring." );
        return;
    }
    if( method == u"OPEN" ) return _onOpen( command );
    if( method == u"RESET" ) return _onReset( command );
    if( method == u"CLOSE" ) return _onClose( command );
    const GObjectLock scope( *_localCapture );
    if( method == u"STARTAUDIOPREVIEW" )
        _localCapture->enableAudioPreview = true;
    else if( method == u"STOPAUDIOPREVIEW" )
        _localCapture->enableAudioPreview = false;
    else if( method == u"STARTVIDEOPREVIEW" )
        _localCapture->enableVideoPreview = true;
    else if( method == u"STOPVIDEOPREVIEW" )
        _localCapture->enableVideoPreview = false;
    else
        GLOG( u"WARNING Unsupported command '", method, u"' sent to recorder, ignoring." );
}

void GVideoCaptureService::_onStart( const GHTTPHeaders& command )
{
    _writeNoAudioImage( );
    if( _recorder.isOpen( ) ) _stopRecorder( );
    _instance->set( u"Video_Capture_Status", u"Starting..." );
    _instance->set( u"Audio_Capture_Status", u"Starting..." );
    if( _isRobust( ) ) _instance->set( u"Video_Capture_FSM_Status", u"Starting..." );
    const int size = GVideoEncoding_getEdge( _instance );
    for( Medium* medium : { &_audio, &_video } )
    {
        medium->device = command.get( GConcat( medium->name, u"_Capture_Device" ) );
        if( medium->device == medium->none ) medium->device.clear( );
        medium->retry.stop( );
    }
    _watch( );
    GAVCaptureSetLatency( _isRobust( ) ? LATENCY_MS : 0 );
    if( !_recorder.open( _audio.device, _video.device, size ) ) return _onStartFailed( );
    for( Medium* medium : { &_audio, &_video } )
        _publishMedium( *medium, !medium->device.empty( ), _recorder.isWorking( medium->medium ) );
    _publishState( );
    if( _isRobust( ) || _instance->test( u"Voice_Treatment" ) ) _treat( );
    _recorder.subscribeVideo( _localCapture );
    _subscribeAudio( _localCapture );
    if( _isRobust( ) ) _share( );
    if( _shared )
        for( Medium* medium : { &_audio, &_video } ) _waitFor( *medium );
    _restartStreams( );
    _tellPeers( );
}

void GVideoCaptureService::_stopRecorder( )
{
    GLOG( u"Recorder already exists; stopping ", _streams.size( ), u" existing capture streams" );
    _setStatus( u"Stopping..." );
    for( const auto& [name, stream] : _streams ) _unsubscribe( stream );
    _unshare( );
    GASSERT( _localCapture );
    _unsubscribeLocal( );
    _untreat( );
    _localCapture->update( true );
    _recorder.close( );
    _setStatus( u"Stopped" );
}

void GVideoCaptureService::_onStartFailed( )
{
    GLOG( u"WARNING Unable to open recorder, ignoring." );
    for( Medium* medium : { &_audio, &_video } ) _publishMedium( *medium, true, false );
    _publishState( );
    if( _isRobust( ) ) _tellPeers( );
}

void GVideoCaptureService::_publishMedium( Medium& medium, bool asked, bool working )
{
    const GWString device = GConcat( medium.name, u"_Capture_Device" );
    medium.isOnline = working;
    _instance->set( GConcat( medium.name, u"_Capture_Status" ), working ? u"Online" : asked ? u"Error" : u"Offline" );
    _instance->set( GConcat( medium.name, u"_Capture_Online" ), working ? u"true" : u"false" );
    if( working )
    {
        // An equal value would keep its old persist flag. A clip is the device of this run only.
        _instance->clear( device );
        _instance->set( device, medium.device, medium.device != _instance->get( u"avi_source" ) );
    }
    else
        _instance->set( device, medium.none );
}

void GVideoCaptureService::_restartStreams( )
{
    if( _streams.empty( ) ) return;
    GLOG( u"Restarting ", _streams.size( ), u" existing capture streams" );
    for( const auto& [name, stream] : _streams )
    {
        stream->reset( );
        _subscribe( stream );
    }
}

void GVideoCaptureService::_onOpen( const GHTTPHeaders& command )
{
    const GWString name = command.get( u"Buddy-Device-GUID" );
    GLOGIF( 'v', u"Received 'OPEN' request, beginning to capture to '", name );
    const auto old = _streams.find( name );
    if( old != _streams.end( ) )
    {
        GLOG( u"Stream '", name, u"' already open, closing so we can reopen" );
        _deleteStream( old );
    }
    GVideoCaptureStream* stream = GSAFENEW( GVideoCaptureStream, ( _instance, _port, command ) );
    stream->setFormat( command );
    _subscribe( stream );
    _streams[name] = stream;
}

void GVideoCaptureService::_onReset( const GHTTPHeaders& command )
{
    const GWString name = command.get( u"Buddy-Device-GUID" );
    const auto stream = _streams.find( name );
    if( stream == _streams.end( ) )
    {
        GLOG( u"WARNING Received 'RESET' request, but no stream named '", name, u"'; ignoring." );
        return;
    }
    GLOGIF( 'v', u"Received 'RESET' request on stream '", name );
    if( _shared ) _shared->remove( stream->second );
    stream->second->setFormat( command );
    if( _shared ) _shared->add( stream->second );
    GLOGIF( 'v', u"Completed 'RESET' request on stream '", name );
}

void GVideoCaptureService::_onClose( const GHTTPHeaders& command )
{
    const GWString name = command.get( u"Buddy-Device-GUID" );
    const auto stream = _streams.find( name );
    if( stream == _streams.end( ) )
    {
        GLOG( u"Received 'CLOSE' request, but no stream named '", name, u"'; ignoring." );
        return;
    }
    GLOGIF( 'v', u"Received 'CLOSE' request, stopping broadcast on stream '", name );
    _deleteStream( stream );
}

void GVideoCaptureService::_unsubscribeLocal( )
{
    _recorder.unsubscribeVideo( _localCapture );
    _unsubscribeAudio( _localCapture );
}

void GVideoCaptureService::_treat( )
{
    _treated = std::make_unique<GTreatedAudio>( _instance );
    _recorder.subscribeAudio( _treated.get( ) );
}

// All listeners have left.
void GVideoCaptureService::_untreat( )
{
    if( !_treated ) return;
    _recorder.unsubscribeAudio( _treated.get( ) );
    _treated.reset( );
}

void GVideoCaptureService::_subscribeAudio( IGCaptureAudioListener* listener )
{
    if( _treated ) return _treated->add( listener );
    _recorder.subscribeAudio( listener );
}

void GVideoCaptureService::_unsubscribeAudio( IGCaptureAudioListener* listener )
{
    if( _treated ) return _treated->remove( listener );
    _recorder.unsubscribeAudio( listener );
}

void GVideoCaptureService::_share( )
{
    _shared = std::make_unique<GSharedEncoding>( _instance, _port );
    _subscribeAudio( _shared.get( ) );
    _recorder.subscribeVideo( _shared.get( ) );
}

// All streams have left.
void GVideoCaptureService::_unshare( )
{
    if( !_shared ) return;
    _unsubscribeAudio( _shared.get( ) );
    _recorder.unsubscribeVideo( _shared.get( ) );
    _shared.reset( );
}

void GVideoCaptureService::_subscribe( GVideoCaptureStream* stream )
{
    if( _shared ) return _shared->add( stream );
    _subscribeAudio( stream );
    _recorder.subscribeVideo( stream );
}

void GVideoCaptureService::_unsubscribe( GVideoCaptureStream* stream )
{
    if( _shared ) return _shared->remove( stream );
    _unsubscribeAudio( stream );
    _recorder.unsubscribeVideo( stream );
}

void GVideoCaptureService::_deleteStream( Streams::iterator stream )
{
    if( _recorder.isOpen( ) ) _unsubscribe( stream->second );
    delete stream->second;
    _streams.erase( stream );
}

void GVideoCaptureService::_setStatus( GWStringView status )
{
    _instance->set( u"Video_Capture_Status", status );
    _instance->set( u"Audio_Capture_Status", status );
    _instance->set( u"Video_Capture_FSM_Status", status );
}

// The remedy keeps this value up to date; to the letter it knows stops only.
void GVideoCaptureService::_publishState( )
{
    if( !_isRobust( ) ) return;
    const auto has = [this]( GWStringView status ) {
        return _instance->get( u"Video_Capture_Status" ) == status ||
               _instance->get( u"Audio_Capture_Status" ) == status;
    };
    _instance->set( u"Video_Capture_FSM_Status", has( u"Error" )    ? u"Error"
                                                 : has( u"Online" ) ? u"Online"
                                                                    : u"Offline" );
}

void GVideoCaptureService::_tellPeers( )
{
    _instance->enqueue( u"GSIPService_commandQueue", GHTTPHeaders( u"UPDATECAPTURE" ) );
}

// Devices that come and go wake the service.
void GVideoCaptureService::_watch( )
{
    if( _isWatching == _isRobust( ) ) return;
    _isWatching = !_isWatching;
    if( !_isWatching ) return GAVCaptureWatchDevices( nullptr );
    GAVCaptureWatchDevices(
        [this]
        {
            _devicesChanged = true;
            GEventSet( _commandEvent );
        } );
}

void GVideoCaptureService::_lookAtDevices( )
{
    if( _devicesChanged.exchange( false ) ) _listDevices( );
    for( Medium* medium : { &_audio, &_video } )
    {
        if( medium->isOnline && !_recorder.isWorking( medium->medium ) ) _onLost( *medium );
        if( medium->retry.isDue( GTimeGetTime( ) ) ) _tryAgain( *medium );
    }
}

// The choice stays as it is: it holds when the device is back, and for the next run.
void GVideoCaptureService::_onLost( Medium& medium )
{
    GLOG( medium.name, u" capture device '", medium.device, u"' is gone" );
    medium.isOnline = false;
    _instance->set( GConcat( medium.name, u"_Capture_Status" ), u"Error" );
    _instance->set( GConcat( medium.name, u"_Capture_Online" ), u"false" );
    if( medium.medium == GCaptureMedium::audio )
    {
        _localCapture->forgetAudio( );
        _writeNoAudioImage( );
    }
    else
        _localCapture->forgetVideo( );
    _publishState( );
    _waitFor( medium );
    _tellPeers( );
}

// Of a device that was asked for and does not work.
void GVideoCaptureService::_waitFor( Medium& medium )
{
    if( !medium.isOnline && !medium.device.empty( ) )
        medium.retry.start( medium.device, medium.isPresent( ), GTimeGetTime( ) );
}

void GVideoCaptureService::_tryAgain( Medium& medium )
{
    if( !_recorder.reopen( medium.medium, medium.device, GVideoEncoding_getEdge( _instance ) ) )
        return medium.retry.onFailure( GTimeGetTime( ) );
    GLOG( medium.name, u" capture device '", medium.device, u"' is back" );
    medium.retry.onSuccess( GTimeGetTime( ) );
    _publishMedium( medium, true, true );
    _publishState( );
    _tellPeers( );
}

// A black square with a green midline and a red cross.
void GVideoCaptureService::_writeNoAudioImage( )
{
    constexpr int WIDTH = 300;
    constexpr int HEIGHT = 100;
    GImageGDI image;
    image.resize( { GIT_BGRA32, WIDTH, HEIGHT } );
    image.clear( u"#000000FF" );
    image.setColor( u"#00FF00" );
    image.drawLine( 0, 50, WIDTH, 50 );
    image.setColor( u"#FF0000" );
    image.drawLine( 0, 0, WIDTH, HEIGHT );
    image.drawLine( 0, HEIGHT, WIDTH, 0 );
    GImageFormat format;
    GString pixels;
    image.convertToRGB( format, pixels );
    GImageTools_instanceWrite( _instance, u"Local_Audio_Image", format, pixels );
}
