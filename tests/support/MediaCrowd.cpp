// Many devices in one program that each log on, meet whoever is in their buddy list and send him pictures once a second: the others of a
// client whose cost is measured. Signalling, transport and codec are the client's own; pictures are encoded once for all.
// Usage: media_crowd LOGON-HOST LOCAL-IP COUNT [silent]      accounts crowd0, crowd1, ... of velmora.local, password "crowd"; silent sends no
// pictures. Each line of input is answered by "<on line> <streams open> <pictures sent> <pictures received>"; the end of the input ends it.
#include "base/GPortable.h"
#include "base/GUtil.h"
#include "client/drawing/GImageTools.h"
#include "client/media/GTheoraEncoder.h"
#include "client/signalling/GDispatchService.h"
#include "client/signalling/GSIPService.h"
#include "client/transport/GHTTPClient.h"
#include "client/transport/GMegaPort.h"
#include "client/transport/GRTP.h"
#include "platform/GTime.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <poll.h>
#include <unistd.h>

namespace
{
constexpr uint64_t SECOND = 1000000;
constexpr int ROUND_MS = 10;
constexpr int EDGE = 48;
constexpr int AFRESH = 8; // Pictures from one that stands by itself to the next.
constexpr uint64_t LOGON_PATIENCE = 20 * SECOND;
constexpr char16_t CAPTURE_QUEUE[] = u"GVideoCaptureService_commandQueue";
constexpr const char16_t* UNHEARD_QUEUES[] = { u"GVideoPlaybackService_commandQueue", u"GFileService_commandQueue",
                                               u"GScreenService_commandQueue" };

GUPnPFunctions noGateway( )
{
    GUPnPFunctions functions;
    functions.open = []( const GWString&, int, int ) -> GNetUPnPMapping* { return nullptr; };
    return functions;
}

// A light that wanders, so that no two pictures are the same.
class Film
{
public:
    const GString& next( )
    {
        if( _count % AFRESH == 0 ) _encoder.startAfresh( );
        for( size_t i = 0; i < _pixels.size( ); i++ )
            _pixels[i] = static_cast<char>( ( i / 3 % EDGE * 5 + i / 3 / EDGE * ( _count % 7 ) + _count * 31 ) & 0xFF );
        _encoder.encode( _pixels.data( ), static_cast<int>( _pixels.size( ) ), _packet );
        ++_count;
        return _packet;
    }

private:
    size_t _count = 0;
    GString _pixels = GString( size_t( EDGE ) * EDGE * 3, '\0' );
    GString _packet;
    GTheoraEncoder _encoder{ { GIT_RGB24, EDGE, EDGE }, { 0, 0, EDGE, EDGE }, EDGE, EDGE, 1 };
};

struct Stream
{
    GWString from, to;
    bool video = false;
    uint16_t sequence = 0;
};

class Device
{
public:
    Device( const GWString& logonHost, const GWString& localIP, int number );
    ~Device( );
    Device( const Device& ) = delete;
    Device& operator=( const Device& ) = delete;
    void pass( );
    void send( const GString& picture, uint64_t now );
    bool isOnline( ) const { return _online && _sip->getState( ) == GSIPService::ONLINE; }
    size_t getStreamCount( ) const { return _streams.size( ); }
    static uint64_t sent;
    static uint64_t received;

private:
    void _logOn( );
    void _tickLogOn( );
    void _onLogOn( const GHTTPHeaders& response );
    void _onCapture( const GHTTPHeaders& command );

    GWString _logonHost;
    uint32_t _ssrc;
    GInstance* _instance;
    GMegaPort* _port;
    GDispatchService* _dispatch;
    GSIPService* _sip;
    std::unique_ptr<GHTTPClient> _http;
    uint64_t _asked = 0;
    bool _online = false;
    std::map<GWString, Stream> _streams;
    GString _packet;
};
uint64_t Device::sent = 0;
uint64_t Device::received = 0;

Device::Device( const GWString& logonHost, const GWString& localIP, int number )
    : _logonHost( logonHost ), _ssrc( static_cast<uint32_t>( number + 1 ) ),
      _instance( GSAFENEW( GInstance, ( GConcat( u"crowd_", number, u".ini" ) ) ) ),
      _port( GSAFENEW( GMegaPort, ( u"crowd" ) ) ), _dispatch( GSAFENEW( GDispatchService, ( _instance, _port ) ) ),
      _sip( GSAFENEW( GSIPService, ( _instance, _port ) ) )
{
    const std::pair<const char16_t*, GWString> settings[] = {
        { u"Local_User_GUID", GConcat( u"crowd", number, u"@velmora.local" ) },
        { u"Local_Password", u"crowd" },
        { u"Local_IP", localIP },
        { u"Robust_Signalling", u"1" },
        { u"Current_Version", u"764" },
        { u"User_Agent_String", u"Velmora/764" },
        { u"Audio_Capture_Online", u"true" },
        { u"Video_Capture_Online", u"true" },
        { u"Video_Privacy_Choice_Mode", u"Public - Allow some people to see me" },
        { u"Video_Privacy_Choice_Who", u"Only buddies who I can see" },
        { u"Video_Privacy_Choice_When", u"Always" } };
    for( const auto& [name, value] : settings ) _instance->set( name, value );
    for( const char16_t* suffix : { u"", u"_a", u"_v", u"_av" } )
        for( const char16_t* end : { u".png", u"_BW.png" } )
            GImageTools_instanceWrite( _instance, GConcat( u"defaultprofile", suffix, end ), { GIT_GRAY8, 1, 1 },
                                       GString( 1, '\0' ) );
    _dispatch->setUPnPFunctions( noGateway( ) );
    _dispatch->lock( );
    _logOn( );
}

Device::~Device( )
{
    _http.reset( );
    _sip->_bGThreadObject_safe_onShutdown( );
    delete _sip;
    _dispatch->_bGThreadObject_safe_onShutdown( );
    _dispatch->unlock( );
    delete _dispatch;
    delete _port;
    delete _instance;
}

void Device::_logOn( )
{
    GHTTPHeaders request( GProtocol::AUTHENTICATE );
    request.set( GProtocol::FROM, _instance->get( u"Local_User_GUID" ) );
    request.set( GProtocol::PASSWORD, _instance->get( u"Local_Password" ) );
    request.set( GProtocol::VERSION, _instance->get( u"Current_Version" ) );
    _http.reset( GSAFENEW( GHTTPClient, ( _logonHost, request ) ) );
    _http->setRobust( true );
    _asked = GTimeGetTime( );
}

void Device::_tickLogOn( )
{
    _http->update( 0 );
    GHTTPHeaders response;
    if( _http->recv( response ) && response.getResponse( ) == GHTTP_SUCCESS ) return _onLogOn( response );
    if( !_http->isAlive( ) || GTimeGetTime( ) - _asked > LOGON_PATIENCE ) _logOn( );
}

void Device::_onLogOn( const GHTTPHeaders& response )
{
    _instance->set( u"Global_SIP_Host_List", response.get( GProtocol::SIP_HOST_LIST ) );
    _instance->set( u"Global_TURN_Host", response.get( GProtocol::TURN_HOST ) );
    _instance->set( u"Global_STUN_Host_List", response.get( GProtocol::STUN_HOST_LIST ) );
    _http.reset( );
    _instance->enqueue( u"GDispatchService_commandQueue", GHTTPHeaders( u"CONNECT" ) );
}

void Device::pass( )
{
    if( _http ) _tickLogOn( );
    _dispatch->pass( 0 );
    _sip->pass( 0 );
    GString item;
    GHTTPHeaders message;
    while( _instance->dequeue( u"GClient_commandQueue", item ) )
        if( message.deserialize( item ) && message.isMethod( u"CONNECTED" ) && !_online )
        {
            _instance->enqueue( u"GSIPService_commandQueue", GHTTPHeaders( u"BUDDYLOGON" ) );
            _online = true;
        }
    while( _instance->dequeue( CAPTURE_QUEUE, item ) )
        if( message.deserialize( item ) ) _onCapture( message );
    for( const char16_t* queue : UNHEARD_QUEUES )
        while( _instance->dequeue( queue, item ) )
        {
        }
    for( const int type : { GRTP_AUDIO, GRTP_VIDEO } )
        while( GMegaPortBucket* bucket = _port->getRTPBucket( type ) )
        {
            if( type == GRTP_VIDEO ) ++received;
            _port->returnEmptyBucket( bucket );
        }
}

void Device::_onCapture( const GHTTPHeaders& command )
{
    const GWString name = command.get( u"Buddy-Device-GUID" );
    if( command.isMethod( u"CLOSE" ) ) _streams.erase( name );
    if( command.isMethod( u"RESET" ) && _streams.contains( name ) )
        _streams[name].video = command.test( u"Video-Enable" );
    if( command.isMethod( u"OPEN" ) )
        _streams[name] = { command.get( u"Send-From" ), command.get( u"Send-To" ), command.test( u"Video-Enable" ) };
}

void Device::send( const GString& picture, uint64_t now )
{
    const char format[4] = { EDGE, 0, 0, 0 };
    for( auto& [name, stream] : _streams )
    {
        if( !stream.video ) continue;
        GRTPCompose( _packet, GRTP_VIDEO, ++stream.sequence, static_cast<uint32_t>( now / 1000 ), _ssrc, format,
                     sizeof( format ), picture.data( ), static_cast<int>( picture.size( ) ) );
        _port->send( stream.from, stream.to, _packet.data( ), static_cast<int>( _packet.size( ) ) );
        ++sent;
    }
}

class Crowd
{
public:
    Crowd( const GWString& logonHost, const GWString& localIP, int count, bool silent )
        : _film( silent ? nullptr : std::make_unique<Film>( ) )
    {
        for( int i = 0; i < count; i++ ) _devices.push_back( std::make_unique<Device>( logonHost, localIP, i ) );
    }
    // Everybody's pictures leave at a moment of the second that is his own.
    void pass( )
    {
        for( const auto& device : _devices ) device->pass( );
        if( !_film ) return;
        const uint64_t now = GTimeGetTime( );
        const uint64_t due = now * _devices.size( ) / SECOND;
        for( _last = std::max( _last, due - _devices.size( ) ); _last < due; )
        {
            const size_t next = static_cast<size_t>( ++_last % _devices.size( ) );
            if( next == 0 ) _picture = _film->next( );
            if( !_picture.empty( ) ) _devices[next]->send( _picture, now );
        }
    }
    void tell( ) const
    {
        size_t online = 0;
        size_t streams = 0;
        for( const auto& device : _devices )
        {
            online += device->isOnline( );
            streams += device->getStreamCount( );
        }
        std::cout << online << ' ' << streams << ' ' << Device::sent << ' ' << Device::received << std::endl;
    }

private:
    std::vector<std::unique_ptr<Device>> _devices;
    std::unique_ptr<Film> _film;
    GString _picture;
    uint64_t _last = 0; // Moments that are over.
};
} // namespace

int main( int argc, char** argv )
{
    if( argc != 4 && argc != 5 ) return 2;
    GPortableGetHooks( ).log = []( const GWString& line )
    {
        if( line.find( u"ERROR" ) != GWString::npos ) std::cerr << GWideToUTF8( line ) << std::flush;
    };
    GPortableGetHooks( ).crash = [] { std::abort( ); };
    Crowd crowd( GUTF8ToWide( argv[1] ), GUTF8ToWide( argv[2] ), std::atoi( argv[3] ), argc == 5 );
    pollfd input{ STDIN_FILENO, POLLIN, 0 };
    std::string line;
    for( ;; )
    {
        if( poll( &input, 1, ROUND_MS ) > 0 )
        {
            if( !std::getline( std::cin, line ) ) return 0;
            crowd.tell( );
        }
        crowd.pass( );
    }
}
