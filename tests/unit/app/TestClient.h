// A client on a clock of its own, whose desktop, services and skin only write down what they are told, with a logon server on
// loopback.
#pragma once

#include "client/app/GClient.h"
#include "runtime/GInstance.h"
#include "support/TestClock.h"
#include "support/TestTcpServer.h"

#include <gtest/gtest.h>

struct TestBubble
{
    GWString title;
    GWString text;
    int eventID;
};

// What the fake desktop was told, and what it answers.
struct TestDesktop
{
    GStringVector commands; // Of the skin.
    std::vector<TestBubble> bubbles;
    std::vector<int> quits;
    GStringVector log; // Life of services, icon, timer and skin, in order.
    GStringVector menu;
    GStringVector sounds;
    std::vector<std::pair<GWString, GHTTPHeaders>> broadcasts;
    GStringVector chats;
    GStringVector hotkeys;
    GStringVector documents;
    GStringVector questions; // Titles and names of file choosers.
    GWString iconText;
    int iconState = -1;
    int64_t timerPeriod = 100000;
    int menuChoice = -1;
    bool tray = true;
    bool windowShown = false;
    bool terminating = false;
    bool muted = false;
    bool opens = true;
    double volume = 1;
    double speaker = 0;
    double wave = 0;
    GWString savePath;
    std::function<void( )> onQuestion;
    int lookUps = 0; // Of the machine's own name.
    GStringList ips; // As many as before the first tick, so that the network does not change unless a test says so.
};

class TestClient : public testing::Test
{
protected:
    TestClient( );
    ~TestClient( ) override;

    // Writes the settings file that the next client reads; the logon server is in it.
    void settings( const std::vector<std::pair<GString, GString>>& values );
    void open( bool upgraded = false, bool uploadlogfiles = false, bool forceturn = false );
    void close( );
    void tick( int count = 1 );
    void event( int eventID ) { client->input( eventID, { } ); }
    void command( const GHTTPHeaders& message ) { client->input( GClient::EVENT_COMMAND, message ); }
    void command( GWStringView method ) { command( GHTTPHeaders( method ) ); }
    // The next message on that queue; empty when there is none.
    GHTTPHeaders next( GWStringView queue );
    GWString nextMethod( GWStringView queue ) { return next( queue ).getMethod( ); }
    void clearQueues( );
    // What was told to dispatch, sip and file service at a reset; takes it from the queues.
    bool wasReset( );
    GWString get( GWStringView name ) { return client->getInstance( )->get( name ); }
    void set( GWStringView name, GWStringView value ) { client->getInstance( )->set( name, value ); }
    int state( ) const { return client->getState( ); }
    bool ran( GWStringView command ) const;

    GHTTPHeaders goodReply( const GWString& userGUID = u"me@velmora.local" ) const;
    // Takes the logon on its way and answers it; ticks until it is processed.
    GHTTPHeaders answerLogon( const GHTTPHeaders& reply );
    // Brings an opened client, with an account, into a state.
    void to( int wanted );

    static constexpr char16_t SETTINGS[] = u"test_client_settings.ini";
    TestClock clock;
    TestTcpServer server;
    TestDesktop desktop;
    GClientPlatform platform;
    GClient* client = nullptr;
};
