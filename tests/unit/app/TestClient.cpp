#include "unit/app/TestClient.h"

#include "base/GUtil.h"
#include "runtime/GThreadObject.h"

#include <algorithm>

namespace
{
TestDesktop* desktop_ = nullptr;

// A service that only lives.
class FakeService : public GThreadObject
{
public:
    explicit FakeService( const GWString& name ) : _name( name )
    {
        desktop_->log.push_back( GConcat( u"new ", name ) );
    }
    ~FakeService( ) override
    {
        stop( true );
        desktop_->log.push_back( GConcat( u"delete ", _name ) );
    }

private:
    GWString _name;
};
GThreadObject* createFirst( GInstance*, GMegaPort* )
{
    return GTRACK( GThreadObject, new FakeService( u"first" ) );
}
GThreadObject* createSecond( GInstance*, GMegaPort* )
{
    return GTRACK( GThreadObject, new FakeService( u"second" ) );
}

class FakeSkin : public IGClientSkin
{
public:
    FakeSkin( ) { desktop_->log.emplace_back( u"new skin" ); }
    ~FakeSkin( ) override { desktop_->log.emplace_back( u"delete skin" ); }
    void command( const GWString& text ) override { desktop_->commands.push_back( text ); }
    void onHotkeyDown( GHotkey, const GWString& name ) override
    {
        desktop_->hotkeys.push_back( GConcat( u"+", name ) );
    }
    void onHotkeyUp( GHotkey, const GWString& name ) override { desktop_->hotkeys.push_back( GConcat( u"-", name ) ); }
    void broadcastToBuddy( const GWString& buddy, const GHTTPHeaders& message ) override
    {
        desktop_->broadcasts.emplace_back( buddy, message );
    }
    void logCHAT( const GWString& buddy, const GHTTPHeaders& message ) override
    {
        desktop_->chats.push_back( GConcat( buddy, u": ", message.getContent( 0 ) ) );
    }
};

void fillDesktop( GClientPlatform& platform )
{
    platform.openTimer = []( int64_t period, IGTimerListener* ) -> GTimer
    {
        desktop_->log.push_back( GConcat( u"timer ", period ) );
        return nullptr;
    };
    platform.closeTimer = []( GTimer ) { desktop_->log.emplace_back( u"close timer" ); };
    platform.setTimerPeriod = []( GTimer, int64_t period ) { desktop_->timerPeriod = period; };
    platform.openIcon = []( IGIconListener* ) -> GIcon
    {
        desktop_->log.emplace_back( u"icon" );
        return nullptr;
    };
    platform.closeIcon = []( GIcon ) { desktop_->log.emplace_back( u"close icon" ); };
    platform.setIconState = []( GIcon, int state ) { desktop_->iconState = state; };
    platform.setIconText = []( GIcon, const GWString& text ) { desktop_->iconText = text; };
    platform.setIconBubble = []( GIcon, const GWString& title, const GWString& text, int eventID ) {
        desktop_->bubbles.push_back( { title, text, eventID } );
    };
    platform.hasTray = [] { return desktop_->tray; };
    platform.isAnyWindowShown = [] { return desktop_->windowShown; };
    platform.executeMenu = []( const GStringVector& labels )
    {
        desktop_->menu = labels;
        return desktop_->menuChoice;
    };
    platform.registerListener = []( IGSystemListener* ) { desktop_->log.emplace_back( u"listen" ); };
    platform.resignListener = []( IGSystemListener* ) { desktop_->log.emplace_back( u"resign" ); };
    platform.postQuit = []( int parameter ) { desktop_->quits.push_back( parameter ); };
}

void fillSystem( GClientPlatform& platform )
{
    platform.openDocument = []( const GWString& path, GWString& reason )
    {
        desktop_->documents.push_back( path );
        reason = u"it is not there";
        return desktop_->opens;
    };
    platform.chooseFileSave = []( const GWString& title, const GWString& name )
    {
        desktop_->questions.push_back( GConcat( title, u" / ", name ) );
        if( desktop_->onQuestion ) desktop_->onQuestion( );
        return desktop_->savePath;
    };
    platform.isTerminating = [] { return desktop_->terminating; };
    platform.listInterfaceIPs = []( GStringList& list )
    {
        list = desktop_->ips;
        return !list.empty( );
    };
    platform.listIPs = [interfaces = platform.listInterfaceIPs]( GStringList& list )
    {
        ++desktop_->lookUps;
        return interfaces( list );
    };
    platform.playSound = []( const GWString& path ) { desktop_->sounds.push_back( path ); };
    platform.isMuted = [] { return desktop_->muted; };
    platform.setMute = []( bool mute ) { desktop_->muted = mute; };
    platform.getVolume = [] { return desktop_->volume; };
    platform.setVolumeLines = []( double speaker, double wave )
    {
        desktop_->speaker = speaker;
        desktop_->wave = wave;
    };
}
} // namespace

TestClient::TestClient( )
{
    desktop_ = &desktop;
    fillDesktop( platform );
    fillSystem( platform );
    platform.services = { { u"First", createFirst }, { u"Second", createSecond } };
    platform.openSkin = []( GInstance* ) { return std::make_unique<FakeSkin>( ); };
    GLogSetFilter( "" );
    settings( { { "local_user_guid", "me@velmora.local" }, { "local_password", "secret" } } );
}

TestClient::~TestClient( )
{
    close( );
    GFileDelete( SETTINGS );
    GLogSetFilter( "" );
}

void TestClient::settings( const std::vector<std::pair<GString, GString>>& values )
{
    GString text = "authenticate_host: " + GWideToUTF8( server.host( ) ) +
                   "\nfirst_run_complete: 1\nfirst_logon_complete: 1\ncpu_log_threshold: 1000000\n";
    for( const auto& [name, value] : values ) text += name + ": " + value + "\n";
    text += "\n";
    GFileSave( SETTINGS, text.data( ), static_cast<int64_t>( text.size( ) ) );
}

void TestClient::open( bool upgraded, bool uploadlogfiles, bool forceturn )
{
    client = GSAFENEW( GClient, ( SETTINGS, u"", u"", u"", upgraded, uploadlogfiles, forceturn, platform ) );
}

void TestClient::close( )
{
    delete client;
    client = nullptr;
}

void TestClient::tick( int count )
{
    for( int i = 0; i < count; ++i )
    {
        clock.advance( 100000 );
        client->onTimer( nullptr );
    }
}

GHTTPHeaders TestClient::next( GWStringView queue )
{
    GString item;
    GHTTPHeaders message;
    if( client->getInstance( )->dequeue( queue, item ) ) message.deserialize( item );
    return message;
}

void TestClient::clearQueues( )
{
    for( const GWStringView queue : { u"GDispatchService_commandQueue", u"GSIPService_commandQueue",
                                      u"GFileService_commandQueue", u"GLogfileService_commandQueue" } )
        while( !nextMethod( queue ).empty( ) )
        {
        }
}

bool TestClient::wasReset( )
{
    bool all = true;
    for( const GWStringView queue :
         { u"GDispatchService_commandQueue", u"GSIPService_commandQueue", u"GFileService_commandQueue" } )
        all = nextMethod( queue ) == u"RESET" && all;
    return all;
}

bool TestClient::ran( GWStringView text ) const
{
    return std::find( desktop.commands.begin( ), desktop.commands.end( ), text ) != desktop.commands.end( );
}

GHTTPHeaders TestClient::goodReply( const GWString& userGUID ) const
{
    GHTTPHeaders reply;
    reply.setResponse( 200, u"OK" );
    reply.set( u"User-GUID", userGUID );
    reply.set( u"STUN-Host-List", GStringList{ u"1.1.1.1:1", u"1.1.1.2:2", u"1.1.1.3:3", u"1.1.1.4:4" } );
    reply.set( u"SIP-Host-List", u"2.2.2.2:2" );
    reply.set( u"TURN-Host", u"3.3.3.3:3" );
    reply.set( u"Logfile-Host", u"4.4.4.4:4" );
    return reply;
}

GHTTPHeaders TestClient::answerLogon( const GHTTPHeaders& reply )
{
    GHTTPHeaders request;
    EXPECT_TRUE( server.accept( ) );
    client->onTimer( nullptr );
    EXPECT_TRUE( server.hear( request ) );
    server.say( reply );
    for( int i = 0; i < 200 && state( ) == GClient::AUTHENTICATING; ++i ) client->onTimer( nullptr );
    server.hangUp( );
    return request;
}

void TestClient::to( int wanted )
{
    open( );
    if( wanted == GClient::AUTHENTICATING ) return;
    if( wanted == GClient::OFFLINE ) return command( u"LOGOFF" );
    if( wanted == GClient::WAITING ) return event( GClient::EVENT_SUSPEND );
    answerLogon( goodReply( ) );
    if( wanted == GClient::CONNECTING ) return;
    command( u"CONNECTED" );
    if( wanted == GClient::ONLINE ) return;
    command( u"LOGOFF" );
    if( wanted == GClient::LOGGING_OFF ) return;
    command( u"BUDDYLOGGEDOFF" );
}
