#include "client/media/GVideoCaptureService.h"

#include "client/drawing/GImageGDI.h"
#include "client/drawing/GImageTools.h"

namespace
{
constexpr int LOOP_MS = 50;
// A command ends the rest at once.
constexpr int REST_MS = 5000;
constexpr int PRIORITY = 2;
constexpr int BYTES_PER_SAMPLE = 2;
constexpr int FREQUENCY = 22000;
constexpr int FPS = 7;
constexpr char16_t QUEUE[] = u"GVideoCaptureService_commandQueue";
constexpr char16_t NO_AUDIO[] = u"(none - disable audio capture)";
constexpr char16_t NO_VIDEO[] = u"(none - disable video capture)";
} // namespace

GVideoCaptureService::GVideoCaptureService( GInstance* instance, GMegaPort* port )
    : _instance( instance ), _port( port ), _commandEvent( GEventOpen( ) )
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
    GASSERT( !_recorder );
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
    _publishDevices( audioList, u"Audio_Capture_Device", NO_AUDIO, u"Available_Audio_Capture_Devices" );
    _publishDevices( videoList, u"Video_Capture_Device", NO_VIDEO, u"Available_Video_Capture_Devices" );
}

// The present choice stands first, where a skin's list shows it.
void GVideoCaptureService::_publishDevices( GStringList devices, GWStringView choice, GWStringView none,
                                            GWStringView list )
{
    if( _instance->isSet( choice ) )
    {
        const GWString name = _instance->get( choice );
        devices.remove( name );
        devices.remove( GWString( none ) );
        devices.push_front( name );
        if( name != none ) devices.emplace_back( none );
    }
    else
        devices.emplace_front( none );
    _instance->set( list, devices );
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
    _localCapture->update( false );
    return _localCapture->isWaitingForPicture( ) ? LOOP_MS : REST_MS;
}

void GVideoCaptureService::_bGThreadObject_safe_onShutdown( )
{
    GLOGIF( 'v', u"Stopping local capture" );
    if( _recorder )
    {
        GAVCaptureUnsubscribeVideo( _recorder, _localCapture );
        GAVCaptureUnsubscribeAudio( _recorder, _localCapture );
    }
    delete _localCapture;
    _localCapture = nullptr;
    GLOGIF( 'v', _streams.size( ), u" capture streams on close, stopping." );
    while( !_streams.empty( ) ) _deleteStream( _streams.begin( ) );
    _unshare( );
    if( _recorder ) GAVCaptureClose( _recorder );
    _recorder = nullptr;
}

void GVideoCaptureService::_onCommand( const GHTTPHeaders& command )
{
    const GWString method = command.getMethod( );
    if( method == u"START" ) return _onStart( command );
    if( method == u"LISTDEVICES" ) return _listDevices( );
    if( !_recorder )
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
    if( _recorder ) _stopRecorder( );
    _instance->set( u"Video_Capture_Status", u"Starting..." );
    _instance->set( u"Audio_Capture_Status", u"Starting..." );
    const int size = GVideoEncoding_getEdge( _instance );
    GWString audioName = command.get( u"Audio_Capture_Device" );
    GWString videoName = command.get( u"Video_Capture_Device" );
    if( audioName == NO_AUDIO ) audioName.clear( );
    if( videoName == NO_VIDEO ) videoName.clear( );
    _recorder = GAVCaptureOpen( audioName, videoName, BYTES_PER_SAMPLE, FREQUENCY, FPS, size, size );
    if( !_recorder ) return _onStartFailed( );
    _publishMedium( u"Audio", audioName, !audioName.empty( ), GAVCaptureIsAudioWorking( _recorder ) );
    _publishMedium( u"Video", videoName, !videoName.empty( ), GAVCaptureIsVideoWorking( _recorder ) );
    GAVCaptureSubscribeVideo( _recorder, _localCapture );
    GAVCaptureSubscribeAudio( _recorder, _localCapture );
    if( _instance->test( u"Robust_Media" ) ) _share( );
    _restartStreams( );
    _instance->enqueue( u"GSIPService_commandQueue", GHTTPHeaders( u"UPDATECAPTURE" ) );
}

void GVideoCaptureService::_stopRecorder( )
{
    GLOG( u"Recorder already exists; stopping ", _streams.size( ), u" existing capture streams" );
    _setStatus( u"Stopping..." );
    for( const auto& [name, stream] : _streams ) _unsubscribe( stream );
    _unshare( );
    GASSERT( _localCapture );
    GAVCaptureUnsubscribeVideo( _recorder, _localCapture );
    GAVCaptureUnsubscribeAudio( _recorder, _localCapture );
    _localCapture->update( true );
    GAVCaptureClose( _recorder );
    _setStatus( u"Stopped" );
    _recorder = nullptr;
}

void GVideoCaptureService::_onStartFailed( )
{
    GLOG( u"WARNING Unable to open recorder, ignoring." );
    for( const GWStringView medium : { GWStringView( u"Audio" ), GWStringView( u"Video" ) } )
        _publishMedium( medium, u"", true, false );
}

void GVideoCaptureService::_publishMedium( GWStringView medium, GWStringView name, bool asked, bool working )
{
    const GWString status = working ? u"Online" : asked ? u"Error" : u"Offline";
    const GWString device = GConcat( medium, u"_Capture_Device" );
    _instance->set( GConcat( medium, u"_Capture_Status" ), status );
    _instance->set( GConcat( medium, u"_Capture_Online" ), working ? u"true" : u"false" );
    if( working )
    {
        // An equal value would keep its old persist flag. A clip is the device of this run only.
        _instance->clear( device );
        _instance->set( device, name, name != _instance->get( u"avi_source" ) );
    }
    else
        _instance->set( device, medium == u"Audio" ? NO_AUDIO : NO_VIDEO );
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

void GVideoCaptureService::_share( )
{
    _shared = std::make_unique<GSharedEncoding>( _instance, _port );
    GAVCaptureSubscribeAudio( _recorder, _shared.get( ) );
    GAVCaptureSubscribeVideo( _recorder, _shared.get( ) );
}

// All streams have left.
void GVideoCaptureService::_unshare( )
{
    if( !_shared ) return;
    GAVCaptureUnsubscribeAudio( _recorder, _shared.get( ) );
    GAVCaptureUnsubscribeVideo( _recorder, _shared.get( ) );
    _shared.reset( );
}

void GVideoCaptureService::_subscribe( GVideoCaptureStream* stream )
{
    if( _shared ) return _shared->add( stream );
    GAVCaptureSubscribeAudio( _recorder, stream );
    GAVCaptureSubscribeVideo( _recorder, stream );
}

void GVideoCaptureService::_unsubscribe( GVideoCaptureStream* stream )
{
    if( _shared ) return _shared->remove( stream );
    GAVCaptureUnsubscribeAudio( _recorder, stream );
    GAVCaptureUnsubscribeVideo( _recorder, stream );
}

void GVideoCaptureService::_deleteStream( Streams::iterator stream )
{
    if( _recorder ) _unsubscribe( stream->second );
    delete stream->second;
    _streams.erase( stream );
}

void GVideoCaptureService::_setStatus( GWStringView status )
{
    _instance->set( u"Video_Capture_Status", status );
    _instance->set( u"Audio_Capture_Status", status );
    _instance->set( u"Video_Capture_FSM_Status", status );
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
