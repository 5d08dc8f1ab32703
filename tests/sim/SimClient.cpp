#include "sim/SimClient.h"

#include "client/drawing/GImageTools.h"
#include "protocol/GProtocol.h"
#include "sim/SimServer.h"

#include <utility>

namespace
{
constexpr int64_t ROUND = 500000;
constexpr int64_t SHORT_ROUND = 100000;
constexpr int64_t TICK = 100000;
constexpr int64_t SLOW_TICK = 1000000;
constexpr uint64_t RETRY_PERIOD = 60000000;
constexpr char16_t DISPATCH_QUEUE[] = u"GDispatchService_commandQueue";
constexpr char16_t SIP_QUEUE[] = u"GSIPService_commandQueue";
constexpr char16_t CLIENT_QUEUE[] = u"GClient_commandQueue";
// Nobody captures or plays here; the commands are taken off as the services would.
constexpr const char16_t* MEDIA_QUEUES[] = { u"GVideoCaptureService_commandQueue",
                                             u"GVideoPlaybackService_commandQueue", u"GFileService_commandQueue",
                                             u"GScreenService_commandQueue" };

void paintPictures( GInstance& instance )
{
    char value = 'A';
    for( const char16_t* suffix : { u"", u"_a", u"_v", u"_av" } )
        for( const char16_t* end : { u".png", u"_BW.png" } )
            GImageTools_instanceWrite( &instance, GConcat( u"defaultprofile", suffix, end ), { GIT_GRAY8, 1, 1 },
                                       GString( 1, value++ ) );
}

GUPnPFunctions noGateway( )
{
    GUPnPFunctions functions;
    functions.open = []( const GWString&, int, int ) -> GNetUPnPMapping* { return nullptr; };
    return functions;
}
} // namespace

SimClient::Program::Program( const GWString& settings, const GWString& user )
    : instance( GSAFENEW( GInstance, ( settings ) ) ), port( GSAFENEW( GMegaPort, ( user ) ) ),
      dispatch( GSAFENEW( GDispatchService, ( instance, port ) ) ), sip( GSAFENEW( GSIPService, ( instance, port ) ) )
{
    dispatch->setUPnPFunctions( noGateway( ) );
    dispatch->lock( );
}

SimClient::Program::~Program( )
{
    httpClient.reset( );
    sip->_bGThreadObject_safe_onShutdown( );
    delete sip;
    dispatch->_bGThreadObject_safe_onShutdown( );
    dispatch->unlock( );
    delete dispatch;
    delete port;
    delete instance;
}

SimClient::SimClient( GSimClock& clock, GSimNet& net, SimLog& log, int host, GString name, SimAccount account )
    : _clock( clock ), _net( net ), _log( log ), _host( host ), _name( std::move( name ) ),
      _user( GUTF8ToWide( account.user ) ), _account( std::move( account ) ),
      _settings( GConcat( u"simulation_", _name, u".ini" ) )
{
    GFileDelete( _settings );
    _net.setWake( _host, [this] { _wakeDispatch( ); } );
}

SimClient::~SimClient( )
{
    kill( );
    _net.setWake( _host, nullptr );
    GFileDelete( _settings );
}

// ---- The program.

void SimClient::start( )
{
    if( _program ) return;
    _enter( );
    ++_life;
    _program = std::make_unique<Program>( _settings, _user );
    GInstance& instance = *_program->instance;
    paintPictures( instance );
    const std::pair<const char16_t*, GWString> settings[] = {
        { u"Local_User_GUID", _user },
        { u"Local_Password", GUTF8ToWide( SimServer::PASSWORD ) },
        { u"AUTHENTICATE_Host", _account.logonHost },
        { u"Robust_Signalling", _account.robust ? u"1" : u"0" },
        { u"Current_Version", u"764" },
        { u"User_Agent_String", u"Velmora/764" },
        { u"UPnP_Low_Port", u"49152" },
        { u"UPnP_High_Port", u"65535" },
        { u"Audio_Capture_Online", u"true" },
        { u"Video_Capture_Online", u"true" },
        { u"Video_Privacy_Choice_Mode", u"Public - Allow some people to see me" },
        { u"Video_Privacy_Choice_Who", u"Only buddies who I can see" },
        { u"Video_Privacy_Choice_When", u"Always" } };
    for( const auto& [setting, value] : settings ) instance.set( setting, value );
    _state = OFFLINE;
    _reconnects = true;
    _sipHasMail = false;
    _plan( _dispatchLoop, _clock.now( ), &SimClient::_dispatchRound );
    _plan( _sipLoop, _clock.now( ), &SimClient::_sipRound );
    _plan( _coreLoop, _clock.now( ), &SimClient::_coreRound );
}

void SimClient::kill( )
{
    if( !_program ) return;
    _enter( );
    ++_life;
    _program.reset( );
    _state = OFFLINE;
}

void SimClient::_enter( )
{
    _net.enter( _host );
    _log.enter( _name );
}

void SimClient::_plan( Loop& loop, uint64_t due, void ( SimClient::*round )( ) )
{
    loop.due = due;
    const uint64_t plan = ++loop.plan;
    _clock.at( due,
               [this, life = _life, plan, &loop, round]
               {
                   if( life != _life || plan != loop.plan ) return;
                   _enter( );
                   ( this->*round )( );
               } );
}

// ---- The loops.

void SimClient::_dispatchRound( )
{
    _program->dispatch->pass( 0 );
    if( std::exchange( _sipHasMail, false ) ) _wakeSip( );
    _wakeCoreIfToldOf( );
    _plan( _dispatchLoop, _clock.now( ) + ROUND, &SimClient::_dispatchRound );
}

void SimClient::_sipRound( )
{
    _program->sip->pass( 0 );
    if( _onRound ) _onRound( );
    _drainMediaQueues( );
    _wakeCoreIfToldOf( );
    const bool hurries = _account.robust && _isConnecting( );
    _plan( _sipLoop, _clock.now( ) + ( hurries ? SHORT_ROUND : ROUND ), &SimClient::_sipRound );
}

void SimClient::_coreRound( )
{
    _runCore( );
    const bool busy = _state == AUTHENTICATING || _program->instance->length( CLIENT_QUEUE ) > 0;
    _plan( _coreLoop, _clock.now( ) + ( busy ? TICK : SLOW_TICK ), &SimClient::_coreRound );
}

void SimClient::_wakeDispatch( )
{
    if( _program && _dispatchLoop.due > _clock.now( ) )
        _plan( _dispatchLoop, _clock.now( ), &SimClient::_dispatchRound );
}

void SimClient::_wakeSip( )
{
    if( _sipLoop.due > _clock.now( ) ) _plan( _sipLoop, _clock.now( ), &SimClient::_sipRound );
}

void SimClient::_wakeCoreIfToldOf( )
{
    const uint64_t soon = _clock.now( ) + TICK;
    if( _program->instance->length( CLIENT_QUEUE ) > 0 && _coreLoop.due > soon )
        _plan( _coreLoop, soon, &SimClient::_coreRound );
}

// What is not the dispatch service's own goes on to the sessions.
void SimClient::noteArrival( const GString& bytes )
{
    if( bytes.find( "(GDispatchService)" ) == GString::npos ) _sipHasMail = true;
}

bool SimClient::_isConnecting( ) const
{
    for( const GWString& buddy : GSplitList( get( u"Local_Buddy_List" ) ) )
    {
        const GBuddySession* session = _program->sip->findBuddy( buddy );
        if( session && session->isConnecting( ) ) return true;
    }
    return false;
}

void SimClient::_drainMediaQueues( )
{
    GString item;
    for( const char16_t* queue : MEDIA_QUEUES )
        while( _program->instance->dequeue( queue, item ) )
        {
        }
}

// ---- The core.

void SimClient::_runCore( )
{
    GString item;
    while( _program->instance->dequeue( CLIENT_QUEUE, item ) )
    {
        GHTTPHeaders message;
        if( message.deserialize( item ) ) _onNotification( message );
    }
    if( _state == AUTHENTICATING ) _tickAuthenticating( );
    const bool retries = _state == WAITING && _clock.now( ) >= _retryTime;
    if( retries || ( _state == OFFLINE && std::exchange( _reconnects, false ) ) ) _requestAUTHENTICATE( );
}

void SimClient::_onNotification( const GHTTPHeaders& message )
{
    if( message.isMethod( GProtocol::DEVICEBROADCAST ) )
    {
        if( _onChat && message.hasContent( ) )
        {
            GHTTPHeaders inner;
            if( inner.deserialize( message.getContent( 0 ) ) ) _onChat( GWideToUTF8( inner.get( u"Text" ) ) );
        }
    }
    else if( message.isMethod( u"CONNECTED" ) && _state == CONNECTING )
    {
        command( u"BUDDYLOGON" );
        _state = ONLINE;
    }
    else if( message.isMethod( u"DISCONNECTED" ) )
    {
        if( _state == CONNECTING )
            _wait( );
        else if( _state != OFFLINE && _state != WAITING )
            _toOffline( _state == ONLINE );
    }
    else if( message.isMethod( u"BUDDYLOGGEDOFF" ) && _state == LOGGING_OFF )
    {
        _program->instance->enqueue( DISPATCH_QUEUE, GHTTPHeaders( u"DISCONNECT" ) );
        _state = DISCONNECTING;
    }
}

void SimClient::_requestAUTHENTICATE( )
{
    GHTTPHeaders request( GProtocol::AUTHENTICATE );
    request.set( GProtocol::FROM, _user );
    request.set( GProtocol::PASSWORD, get( u"Local_Password" ) );
    request.set( GProtocol::VERSION, get( u"Current_Version" ) );
    _program->httpClient.reset( GSAFENEW( GHTTPClient, ( _account.logonHost, request ) ) );
    _program->httpClient->setRobust( true );
    _state = AUTHENTICATING;
}

void SimClient::_tickAuthenticating( )
{
    GHTTPClient& http = *_program->httpClient;
    http.update( 0 );
    GHTTPHeaders response;
    const bool answered = http.recv( response );
    if( !answered && http.isAlive( ) ) return;
    if( !answered || response.getResponse( ) != GHTTP_SUCCESS )
    {
        _program->httpClient.reset( );
        _wait( );
        return;
    }
    _storeHosts( response );
    _program->httpClient.reset( );
    _program->instance->enqueue( DISPATCH_QUEUE, GHTTPHeaders( u"CONNECT" ) );
    _state = CONNECTING;
}

void SimClient::_storeHosts( const GHTTPHeaders& response )
{
    GInstance& instance = *_program->instance;
    const GWString localHost = _program->httpClient->getLocalHost( );
    instance.set( u"Local_IP", localHost.substr( 0, localHost.find( u':' ) ) );
    instance.set( u"Global_SIP_Host_List", response.get( GProtocol::SIP_HOST_LIST ) );
    instance.set( u"Global_TURN_Host", response.get( GProtocol::TURN_HOST ) );
    instance.set( u"Global_STUN_Host_List", response.get( GProtocol::STUN_HOST_LIST ) );
}

void SimClient::_resetServices( )
{
    for( const char16_t* queue : { DISPATCH_QUEUE, SIP_QUEUE } )
        _program->instance->enqueue( queue, GHTTPHeaders( u"RESET" ) );
    for( const char16_t* setting : { u"Global_SIP_Host", u"Global_SIP_Host_List", u"Global_TURN_Host" } )
        _program->instance->clear( setting );
}

void SimClient::_toOffline( bool reconnects )
{
    _state = OFFLINE;
    _reconnects = reconnects;
    _resetServices( );
}

void SimClient::_wait( )
{
    _state = WAITING;
    _retryTime = _clock.now( ) + RETRY_PERIOD;
    _resetServices( );
}

// ---- What the user does.

void SimClient::logOff( )
{
    if( !_program || _state != ONLINE ) return;
    command( u"BUDDYLOGOFF" );
    _state = LOGGING_OFF;
}

void SimClient::reconnect( )
{
    if( _program && _state == ONLINE ) _toOffline( true );
}

void SimClient::command( GWStringView method, const GWString& buddy )
{
    GHTTPHeaders message( method );
    if( !buddy.empty( ) ) message.set( GProtocol::BUDDY_GUID, buddy );
    _program->instance->enqueue( SIP_QUEUE, message );
}

void SimClient::say( const GWString& user, const GString& text )
{
    GHTTPHeaders chat( u"CHAT" );
    chat.set( u"Text", GUTF8ToWide( text ) );
    GHTTPHeaders broadcast( GProtocol::DEVICEBROADCAST );
    broadcast.addContent( chat.serialize( ) );
    _program->instance->enqueue( GConcat( user, u"_commandQueue" ), broadcast );
}

// ---- What can be seen of it.

bool SimClient::isOnline( ) const
{
    if( !_program || _state != ONLINE ) return false;
    const int state = _program->dispatch->getState( );
    const bool registered = state == GDispatchService::ONLINE || state == GDispatchService::REREGISTERING;
    return registered && _program->sip->getState( ) == GSIPService::ONLINE;
}

GWString SimClient::get( GWStringView name ) const
{
    return _program ? _program->instance->get( name ) : GWString( );
}

void SimClient::set( GWStringView name, GWStringView value )
{
    _program->instance->set( name, value );
}

const GDeviceSession* SimClient::session( const GWString& user, const GWString& device ) const
{
    const GBuddySession* buddy = _program ? _program->sip->findBuddy( user ) : nullptr;
    return buddy ? buddy->findDevice( device ) : nullptr;
}
