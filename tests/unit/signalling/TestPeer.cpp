#include "unit/signalling/TestPeer.h"

#include "base/GRandom.h"
#include "client/drawing/GImageTools.h"
#include "platform/GNet.h"

TestHost::TestHost( ) : _port( GNetUDPPortOpen( u"127.0.0.1:0" ) ), _host( GNetUDPPortGetLocalHost( _port ) ) {}

TestHost::~TestHost( )
{
    GNetUDPPortClose( _port );
}

void TestHost::send( const GWString& to, const GHTTPHeaders& message ) const
{
    sendBytes( to, message.serialize( ) );
}

void TestHost::sendBytes( const GWString& to, const GString& bytes ) const
{
    GNetUDPPortSend( _port, to, bytes.data( ), static_cast<int>( bytes.size( ) ) );
}

std::vector<Heard> TestHost::hear( ) const
{
    std::vector<Heard> out;
    Heard heard;
    while( GNetUDPPortRecv( _port, heard.bytes, heard.from ) )
    {
        heard.message.deserialize( heard.bytes );
        out.push_back( heard );
    }
    return out;
}

std::vector<Heard> TestHost::hear( GWStringView method ) const
{
    std::vector<Heard> out;
    for( const Heard& heard : hear( ) )
        if( heard.message.isMethod( method ) || heard.message.get( u"Debug-Original-Method" ) == method )
            out.push_back( heard );
    return out;
}

namespace
{
// A picture of one pixel, whose value tells it from the others.
void paint( GInstance& instance, const GWString& name, char value )
{
    GImageTools_instanceWrite( &instance, name, { GIT_GRAY8, 1, 1 }, GString( 1, value ) );
}
} // namespace

TestPeer::TestPeer( const GWString& user, const GWString& device, const GWString& serverHost )
    : _file{ GConcat( u"signalling_test_", device, u".ini" ) }, instance( _file.path ), port( user )
{
    GHeapObject::trackMemory( &instance, __FILE__, __FUNCTION__, __LINE__, "GInstance" );
    GHeapObject::trackMemory( &port, __FILE__, __FUNCTION__, __LINE__, "GMegaPort" );
    port.setUDPPort( _udp.port( ) );
    instance.set( u"Local_User_GUID", user );
    instance.set( u"Local_Device_GUID", device );
    instance.set( u"User_Agent_String", u"Velmora/764" );
    instance.set( u"Global_SIP_Host", serverHost );
    instance.set( u"Route_List", GStringList{ GConcat( u"local://", host( ) ) } );
    instance.set( u"Audio_Capture_Online", u"true" );
    instance.set( u"Video_Capture_Online", u"true" );
    instance.set( u"Video_Privacy_Choice_Mode", u"Public - Allow some people to see me" );
    instance.set( u"Video_Privacy_Choice_Who", u"Only buddies who I can see" );
    instance.set( u"Video_Privacy_Choice_When", u"Always" );
    char value = 'A';
    for( const char16_t* suffix : { u"", u"_a", u"_v", u"_av" } )
    {
        paint( instance, GConcat( u"defaultprofile", suffix, u".png" ), value++ );
        paint( instance, GConcat( u"defaultprofile", suffix, u"_BW.png" ), value++ );
    }
}

TestPeer::~TestPeer( )
{
    port.reset( );
}

void TestPeer::receive( )
{
    for( const Heard& heard : _udp.hear( ) )
        if( !isDeaf && GRandom( ) % 100 >= lossPercent ) fill( host( ), heard );
}

void TestPeer::fill( const GWString& localHost, const Heard& heard )
{
    GMegaPortBucket* bucket = port.getEmtpyBucket( );
    bucket->localHost = localHost;
    bucket->remoteHost = heard.from;
    bucket->buffer = heard.bytes;
    port.fillSIPBucket( bucket );
}

std::vector<GHTTPHeaders> TestPeer::commands( GWStringView queue )
{
    std::vector<GHTTPHeaders> out;
    GString item;
    while( instance.dequeue( queue, item ) )
    {
        GHTTPHeaders command;
        command.deserialize( item );
        out.push_back( command );
    }
    return out;
}

std::vector<GWString> TestPeer::methods( GWStringView queue )
{
    std::vector<GWString> out;
    for( const GHTTPHeaders& command : commands( queue ) ) out.push_back( command.getMethod( ) );
    return out;
}

void TestServer::_reply( const Heard& to, GHTTPHeaders response ) const
{
    response.set( u"CSeq", to.message.get( u"CSeq" ) );
    _udp.send( to.from, response );
}

void TestServer::answer( )
{
    for( const Heard& request : _udp.hear( ) )
    {
        if( hears && !hears( request.message ) ) continue;
        heard.push_back( request.message );
        if( request.message.isMethod( u"INVITE" ) )
        {
            _answerInvite( request );
            continue;
        }
        GHTTPHeaders response = respond( code, code == GHTTP_SUCCESS ? u"OK" : u"Refused" );
        if( request.message.isMethod( u"GETBUDDYLIST" ) ) response.set( u"Buddy-List", buddyList );
        _reply( request, response );
    }
}

void TestServer::_answerInvite( const Heard& invite )
{
    GHTTPHeaders response = respond( 100, u"Trying" );
    GStringList deviceList;
    for( const Device& device : devices )
    {
        if( device.user != invite.message.get( u"To" ) ) continue;
        deviceList.push_back( device.device );
        response.set( GConcat( device.device, u"-Route-List" ), device.routes );
        _udp.sendBytes( device.host, invite.bytes );
    }
    if( deviceList.empty( ) ) response = respond( 400, u"Offline" );
    response.set( u"Device-List", deviceList );
    _reply( invite, response );
}
