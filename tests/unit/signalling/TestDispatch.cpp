#include "unit/signalling/TestDispatch.h"

#include "base/GUtil.h"

namespace
{
constexpr char16_t SETTINGS[] = u"test_dispatch_settings.ini";
}

TestDispatch::TestDispatch( )
{
    GFileDelete( SETTINGS );
    instance = GSAFENEW( GInstance, ( SETTINGS ) );
    megaPort = GSAFENEW( GMegaPort, ( u"me@velmora.local" ) );
    service = GSAFENEW( GDispatchService, ( instance, megaPort ) );
    GUPnPFunctions none;
    none.open = []( const GWString&, int, int ) -> GNetUPnPMapping* { return nullptr; };
    service->setUPnPFunctions( none );
    service->lock( );
    instance->set( u"Local_IP", u"127.0.0.1" );
    instance->set( u"Local_User_GUID", u"me@velmora.local" );
    instance->set( u"Local_Device_GUID", u"device1" );
    instance->set( u"Current_Version", 764 );
    instance->set( u"UPnP_Low_Port", 49152 );
    instance->set( u"UPnP_High_Port", 65535 );
    instance->set( u"Global_STUN_Host_List",
                   GStringList{ direct.host( ), punched.host( ), unpunched.host( ), refresh.host( ) } );
    instance->set( u"Global_SIP_Host_List", GStringList{ sip.host( ), sip2.host( ) } );
    instance->set( u"Global_TURN_Host", relay.host( ) );
}

TestDispatch::~TestDispatch( )
{
    service->_bGThreadObject_safe_onShutdown( );
    service->unlock( );
    delete service;
    delete megaPort;
    delete instance;
    GFileDelete( SETTINGS );
}

void TestDispatch::pass( )
{
    const bool said = std::exchange( TestUDPHost::said, false );
    GString data;
    if( said )
    {
        fence.say( fence.host( ), "x" );
        fence.await( );
        fence.hearRaw( data );
        TestUDPHost::said = false;
    }
    service->pass( said ? ARRIVAL : 0 );
}

void TestDispatch::passes( int count, int64_t period )
{
    for( int i = 0; i < count; ++i )
    {
        clock.advance( period );
        pass( );
    }
}

GWString TestDispatch::notification( )
{
    GString item;
    GHTTPHeaders message;
    if( !instance->dequeue( u"GClient_commandQueue", item ) || !message.deserialize( item ) ) return { };
    return message.getMethod( );
}

void TestDispatch::connect( )
{
    GString old;
    for( TestUDPHost* host : { &direct, &punched, &unpunched, &refresh, &sip, &sip2 } )
        while( host->hearRaw( old ) )
        {
        }
    command( u"CONNECT" );
    pass( );
}

GHTTPHeaders TestDispatch::hearAt( TestUDPHost& host, GWStringView method )
{
    GHTTPHeaders message;
    while( host.hear( message ) )
        if( message.isMethod( method ) ) return message;
    host.await( );
    while( host.hear( message ) )
        if( message.isMethod( method ) ) return message;
    ADD_FAILURE( ) << "nobody asked for " << GWideToUTF8( method );
    return { };
}

void TestDispatch::answerSTUN( const GWString& globalHost, bool fromPunched, bool fromUnpunched )
{
    const GHTTPHeaders request = hearAt( direct, u"STUN" );
    direct.answer( request, 200, { { u"Global-Host", globalHost } } );
    if( fromPunched ) punched.answerTo( direct.from( ), request, 200 );
    if( fromUnpunched ) unpunched.answerTo( direct.from( ), request, 200 );
}

void TestDispatch::toChooseServer( )
{
    connect( );
    answerSTUN( GLOBAL_HOST, true, true );
    pass( );
    ASSERT_EQ( state( ), GDispatchService::CHOOSESERVER );
}

void TestDispatch::toRegistering( )
{
    toChooseServer( );
    sip.answer( hearAt( sip, u"PING" ), 200 );
    pass( );
    ASSERT_EQ( state( ), GDispatchService::REGISTERING );
}

void TestDispatch::toOnline( )
{
    toRegistering( );
    sip.answer( hearAt( sip, u"REGISTER" ), 200 );
    pass( );
    ASSERT_EQ( state( ), GDispatchService::ONLINE );
    ASSERT_EQ( notification( ), u"CONNECTED" );
}

bool TestDispatch::passUntil( GDispatchService::State wanted )
{
    for( int i = 0; i < 2000 && state( ) != wanted; ++i ) service->pass( 1000 );
    return state( ) == wanted;
}

void TestDispatch::toTURN( GHTTPHeaders& openRequest )
{
    instance->set( u"Pretend_Firewall", 1 );
    instance->set( u"Disable_UDP_Recv", 1 );
    instance->set( u"Global_SIP_Host_List", GStringList{ sip.host( ) } );
    connect( );
    ASSERT_EQ( state( ), GDispatchService::TURN );
    ASSERT_TRUE( relay.accept( ) );
    pass( );
    ASSERT_TRUE( relay.hear( openRequest ) );
    ASSERT_TRUE( openRequest.isMethod( u"OPENTURN" ) );
}

void TestDispatch::sayRelayed( const GString& data )
{
    GHTTPHeaders message;
    message.setResponse( 200, u"OK" );
    message.set( u"Remote-Host", sip.host( ) );
    message.addContent( data );
    relay.say( message );
}

GHTTPHeaders TestDispatch::hearRelayed( GWStringView method )
{
    GHTTPHeaders outer;
    GHTTPHeaders inner;
    while( relay.hear( outer ) )
    {
        EXPECT_TRUE( outer.isMethod( u"SENDUDP" ) );
        EXPECT_EQ( outer.get( u"Remote-Host" ), sip.host( ) );
        if( outer.hasContent( ) && inner.deserialize( outer.getContent( 0 ) ) && inner.isMethod( method ) )
            return inner;
    }
    ADD_FAILURE( ) << "nobody sent " << GWideToUTF8( method ) << " by the relay";
    return { };
}

void TestDispatch::answerRelayed( GWStringView method )
{
    GHTTPHeaders response;
    response.setResponse( 200, u"OK" );
    response.set( u"CSeq", hearRelayed( method ).get( u"CSeq" ) );
    sayRelayed( response.serialize( ) );
}

void TestDispatch::toRelayed( )
{
    GHTTPHeaders open;
    toTURN( open );
    GHTTPHeaders opened;
    opened.setResponse( 200, u"OK" );
    opened.set( u"CSeq", open.get( u"CSeq" ) );
    opened.set( u"Global-Host", GLOBAL_HOST );
    relay.say( opened );
    ASSERT_TRUE( passUntil( GDispatchService::CHOOSESERVER ) );
    answerRelayed( u"PING" );
    ASSERT_TRUE( passUntil( GDispatchService::REGISTERING ) );
    answerRelayed( u"REGISTER" );
    ASSERT_TRUE( passUntil( GDispatchService::ONLINE ) );
    ASSERT_EQ( notification( ), u"CONNECTED" );
}
