// The table of the service's machine as data, and every pair of state and input that is not in it.
#include "support/TestClock.h"
#include "support/TestLog.h"
#include "unit/signalling/TestClient.h"

#include <gtest/gtest.h>

namespace
{
using S = GSIPService;

enum Input
{
    EVENT,
    COMMAND_BUDDYLOGON,
    COMMAND_BUDDYLOGOFF,
    COMMAND_UPDATECAPTURE,
    COMMAND_ADDBUDDY,
    COMMAND_REMOVEBUDDY,
    COMMAND_RECONNECTBUDDY,
    COMMAND_BUGREPORT,
    COMMAND_RESET,
    COMMAND_OTHER,
    REQUEST_INVITE,
    REQUEST_PING,
    REQUEST_BYE,
    REQUEST_HOLEPUNCH,
    RESPONSE_GETBUDDYLIST,
    RESPONSE_GETBUDDYLIST_FAILED,
    RESPONSE_SETBUDDYLIST,
    RESPONSE_SETBUDDYLIST_FAILED,
    RESPONSE_ADDBUDDY,
    RESPONSE_BUGREPORT,
    RESPONSE_INVITE,
    RESPONSE_PING,
    INPUT_COUNT
};
struct InputText
{
    const char16_t* method;
    int code;
};
const InputText TEXTS[] = { { u"", 0 },
                            { u"BUDDYLOGON", 0 },
                            { u"BUDDYLOGOFF", 0 },
                            { u"UPDATECAPTURE", 0 },
                            { u"ADDBUDDY", 0 },
                            { u"REMOVEBUDDY", 0 },
                            { u"RECONNECTBUDDY", 0 },
                            { u"BUGREPORT", 0 },
                            { u"RESET", 0 },
                            { u"OTHER", 0 },
                            { u"INVITE", 0 },
                            { u"PING", 0 },
                            { u"BYE", 0 },
                            { u"HOLEPUNCH", 0 },
                            { u"GETBUDDYLIST", 200 },
                            { u"GETBUDDYLIST", 500 },
                            { u"SETBUDDYLIST", 200 },
                            { u"SETBUDDYLIST", 500 },
                            { u"ADDBUDDY", 200 },
                            { u"BUGREPORT", 200 },
                            { u"INVITE", 400 },
                            { u"PING", 200 } };
static_assert( std::size( TEXTS ) == INPUT_COUNT );

struct Row
{
    int state;
    Input input;
    int next;
    const char16_t* sent;  // Where it may go to the server or to the far device, "" for nothing.
    const char16_t* noted; // To the client.
};
// bob@test, whose device D2 is connected in these states, is the only buddy.
const Row ROWS[] = {
    { S::OFFLINE, EVENT, S::OFFLINE, u"", u"" },
    { S::OFFLINE, COMMAND_UPDATECAPTURE, S::OFFLINE, u"", u"" },
    { S::OFFLINE, COMMAND_BUDDYLOGON, S::GETTING_BUDDY_LIST, u"GETBUDDYLIST", u"" },
    { S::OFFLINE, COMMAND_RESET, S::OFFLINE, u"", u"" },
    { S::GETTING_BUDDY_LIST, EVENT, S::GETTING_BUDDY_LIST, u"", u"" },
    { S::GETTING_BUDDY_LIST, COMMAND_UPDATECAPTURE, S::GETTING_BUDDY_LIST, u"", u"" },
    { S::GETTING_BUDDY_LIST, RESPONSE_GETBUDDYLIST, S::ONLINE, u"INVITE", u"NEWBUDDY" },
    { S::GETTING_BUDDY_LIST, RESPONSE_GETBUDDYLIST_FAILED, S::ONLINE, u"", u"" },
    { S::GETTING_BUDDY_LIST, COMMAND_BUDDYLOGOFF, S::OFFLINE, u"", u"BUDDYLOGGEDOFF" },
    { S::GETTING_BUDDY_LIST, COMMAND_RESET, S::OFFLINE, u"", u"" },
    { S::ONLINE, EVENT, S::ONLINE, u"", u"" },
    { S::ONLINE, COMMAND_BUDDYLOGOFF, S::LEAVING_BUDDIES, u"BYE", u"" },
    { S::ONLINE, COMMAND_ADDBUDDY, S::ONLINE, u"ADDBUDDY", u"" },
    { S::ONLINE, RESPONSE_ADDBUDDY, S::ONLINE, u"INVITE", u"NEWBUDDY" },
    { S::ONLINE, COMMAND_RECONNECTBUDDY, S::ONLINE, u"INVITE", u"" },
    { S::ONLINE, COMMAND_REMOVEBUDDY, S::ONLINE, u"BYE", u"" },
    { S::ONLINE, COMMAND_BUGREPORT, S::ONLINE, u"BUGREPORT", u"" },
    { S::ONLINE, RESPONSE_BUGREPORT, S::ONLINE, u"", u"" },
    { S::ONLINE, COMMAND_UPDATECAPTURE, S::ONLINE, u"UPDATE", u"" },
    { S::ONLINE, REQUEST_INVITE, S::ONLINE, u"INVITE", u"" },
    { S::ONLINE, REQUEST_PING, S::ONLINE, u"PING", u"" },
    { S::ONLINE, REQUEST_BYE, S::ONLINE, u"BYE", u"" },
    { S::ONLINE, RESPONSE_INVITE, S::ONLINE, u"", u"" },
    { S::ONLINE, RESPONSE_PING, S::ONLINE, u"", u"" },
    { S::ONLINE, COMMAND_RESET, S::OFFLINE, u"", u"" },
    { S::LEAVING_BUDDIES, EVENT, S::LEAVING_BUDDIES, u"", u"" },
    { S::LEAVING_BUDDIES, COMMAND_UPDATECAPTURE, S::LEAVING_BUDDIES, u"", u"" },
    { S::LEAVING_BUDDIES, COMMAND_BUDDYLOGOFF, S::OFFLINE, u"", u"BUDDYLOGGEDOFF" },
    { S::LEAVING_BUDDIES, REQUEST_INVITE, S::LEAVING_BUDDIES, u"", u"" },
    { S::LEAVING_BUDDIES, REQUEST_PING, S::LEAVING_BUDDIES, u"", u"" },
    { S::LEAVING_BUDDIES, RESPONSE_INVITE, S::LEAVING_BUDDIES, u"", u"" },
    { S::LEAVING_BUDDIES, RESPONSE_PING, S::LEAVING_BUDDIES, u"", u"" },
    { S::LEAVING_BUDDIES, COMMAND_RESET, S::OFFLINE, u"", u"" },
    { S::SETTING_BUDDY_LIST, EVENT, S::SETTING_BUDDY_LIST, u"", u"" },
    { S::SETTING_BUDDY_LIST, COMMAND_UPDATECAPTURE, S::SETTING_BUDDY_LIST, u"", u"" },
    { S::SETTING_BUDDY_LIST, RESPONSE_SETBUDDYLIST, S::OFFLINE, u"", u"BUDDYLOGGEDOFF" },
    { S::SETTING_BUDDY_LIST, RESPONSE_SETBUDDYLIST_FAILED, S::OFFLINE, u"", u"BUDDYLOGGEDOFF" },
    { S::SETTING_BUDDY_LIST, COMMAND_RESET, S::OFFLINE, u"", u"" },
};

const Row* findRow( int state, int input )
{
    for( const Row& row : ROWS )
        if( row.state == state && row.input == input ) return &row;
    return nullptr;
}
bool isCommand( int input )
{
    return input > EVENT && input < REQUEST_INVITE;
}
bool isRequest( int input )
{
    return input >= REQUEST_INVITE && input < RESPONSE_GETBUDDYLIST;
}
// What is neither in the table nor warned of.
bool isSilent( int state, int input )
{
    if( input == REQUEST_HOLEPUNCH ) return true;
    const bool isDeaf = state != S::ONLINE && state != S::LEAVING_BUDDIES;
    return isDeaf && ( input == REQUEST_INVITE || input == REQUEST_PING || input == RESPONSE_PING );
}

class SIPServiceTable : public testing::Test
{
protected:
    // Each pair has a client of its own.
    struct Talk
    {
        TestHost far;
        TestHost server;
        TestClient ann{ u"ann@test", u"D1", server.host( ) };
        int cseq = 700;

        GHTTPHeaders fromFar( GWStringView method )
        {
            GHTTPHeaders message( method );
            message.set( u"CSeq", GNumber( ++cseq ) );
            message.set( u"From", u"bob@test" );
            message.set( u"From-Device-GUID", u"D2" );
            message.set( u"Sent-From", far.host( ) );
            message.set( u"Sent-From-Type", u"local" );
            message.set( u"Sent-To", ann.host( ) );
            message.set( u"Try-Route-List", GStringList{ GConcat( u"local://", far.host( ) ) } );
            message.set( u"Send-From", ann.host( ) );
            message.set( u"Send-To", far.host( ) );
            message.set( u"Send-To-Type", u"local" );
            return message;
        }
        void request( GWStringView method ) { ann.service->onRequest( ann.host( ), far.host( ), fromFar( method ) ); }
        void response( GWStringView method, int code )
        {
            const bool ofServer = method != u"PING";
            GHTTPHeaders original( method );
            original.set( u"Sent-To", ofServer ? server.host( ) : far.host( ) );
            original.set( u"CSeq", u"1" );
            GHTTPHeaders message = respond( code, u"text" );
            message.set( u"CSeq", u"1" );
            message.set( u"Buddy-List", u"cid@test" );
            if( method == u"ADDBUDDY" ) original.set( u"Buddy-GUID", u"cid@test" );
            if( method == u"PING" || method == u"INVITE" ) original.set( u"To", u"bob@test" );
            if( method == u"PING" ) original.set( u"To-Device-GUID", u"D2" );
            ann.service->onResponse( ann.host( ), ofServer ? server.host( ) : far.host( ), original, message );
        }
        void command( GWStringView method )
        {
            ann.command( method, u"bob@test" );
            ann.service->pass( 0 );
        }
        void feed( int input )
        {
            if( input == EVENT )
                ann.service->pass( 0 );
            else if( isCommand( input ) )
                command( TEXTS[input].method );
            else if( isRequest( input ) )
                request( TEXTS[input].method );
            else
                response( TEXTS[input].method, TEXTS[input].code );
        }
        void bringTo( int state )
        {
            if( state >= S::GETTING_BUDDY_LIST ) command( u"BUDDYLOGON" );
            if( state >= S::ONLINE )
            {
                GHTTPHeaders original( u"GETBUDDYLIST" );
                original.set( u"Sent-To", server.host( ) );
                ann.service->onResponse( ann.host( ), server.host( ), original, respond( 200, u"OK" ) );
                request( u"INVITE" );
                request( u"ACK" );
                ann.service->pass( 0 ); // The PING that is due.
            }
            if( state >= S::LEAVING_BUDDIES ) command( u"BUDDYLOGOFF" );
            if( state >= S::SETTING_BUDDY_LIST )
            {
                GHTTPHeaders original( u"BYE" );
                original.set( u"To", u"bob@test" );
                original.set( u"To-Device-GUID", u"D2" );
                ann.service->onResponse( ann.host( ), far.host( ), original, respond( 200, u"OK" ) );
                ann.service->pass( 0 );
            }
            ASSERT_EQ( state, ann.service->getState( ) );
            heard( );
            ann.commands( u"GClient_commandQueue" );
        }
        // What reached the server and the far device.
        std::vector<GWString> heard( ) const
        {
            std::vector<GWString> out;
            for( const TestHost* host : { &server, &far } )
                for( const Heard& it : host->hear( ) )
                    out.push_back( it.message.getResponse( ) ? it.message.get( u"Debug-Original-Method" )
                                                             : it.message.getMethod( ) );
            return out;
        }
        GString snapshot( )
        {
            GString out = GWideToUTF8( ann.instance.get( u"Local_Buddy_List" ) );
            for( const char16_t* queue :
                 { u"GVideoCaptureService_commandQueue", u"GVideoPlaybackService_commandQueue",
                   u"GFileService_commandQueue", u"GScreenService_commandQueue", u"GClient_commandQueue" } )
                out += " " + std::to_string( ann.instance.length( queue ) );
            return out + " " + std::to_string( ann.stateOf( u"bob@test", u"D2" ) );
        }
    };
    static std::vector<GWString> listOf( const char16_t* name )
    {
        return *name ? std::vector<GWString>{ name } : std::vector<GWString>{ };
    }
    static GString tell( int state, int input )
    {
        return GWideToUTF8( GConcat( S::_getState( state ), u": ", TEXTS[input].method, u" #", input ) );
    }
    TestClock clock;
};
} // namespace

TEST_F( SIPServiceTable, EveryRowLeadsToItsStateAndDoesWhatItSays )
{
    TestLog::expect( "WARNING Request 'GETBUDDYLIST' failed, ignoring." );
    TestLog::expect( "WARNING Received INVITE while waiting already CONNECTED, responding BUSY." );
    for( const Row& row : ROWS )
    {
        Talk talk;
        talk.bringTo( row.state );
        talk.feed( row.input );
        EXPECT_EQ( row.next, talk.ann.service->getState( ) ) << tell( row.state, row.input );
        EXPECT_EQ( listOf( row.sent ), talk.heard( ) ) << tell( row.state, row.input );
        EXPECT_EQ( listOf( row.noted ), talk.ann.methods( u"GClient_commandQueue" ) ) << tell( row.state, row.input );
        const bool hasSession = talk.ann.service->findBuddy( u"bob@test" );
        EXPECT_EQ( row.state >= S::ONLINE && row.next != S::OFFLINE, hasSession ) << tell( row.state, row.input );
    }
    EXPECT_EQ( 0, TestLog::count( "WARNING: Ignored input" ) );
}

TEST_F( SIPServiceTable, EveryOtherPairChangesNothingButOneWarning )
{
    TestLog::allow( "WARNING: Ignored input" );
    TestLog::allow( "ignored, no state change." );
    TestLog::allow( "WARNING Received recvResponse text to originalRequest" );
    for( int state = S::OFFLINE; state <= S::SETTING_BUDDY_LIST; ++state )
        for( int input = 0; input < INPUT_COUNT; ++input )
        {
            // Answered by its session, as that one's table says.
            if( findRow( state, input ) || ( state == S::LEAVING_BUDDIES && input == REQUEST_BYE ) ) continue;
            Talk talk;
            talk.bringTo( state );
            const int warnings = TestLog::count( "WARNING" );
            const GString before = talk.snapshot( );
            talk.feed( input );
            EXPECT_EQ( state, talk.ann.service->getState( ) ) << tell( state, input );
            EXPECT_EQ( isSilent( state, input ) ? 0 : 1, TestLog::count( "WARNING" ) - warnings )
                << tell( state, input );
            EXPECT_TRUE( talk.heard( ).empty( ) ) << tell( state, input );
            EXPECT_EQ( before, talk.snapshot( ) ) << tell( state, input );
        }
}

TEST_F( SIPServiceTable, StatusFollowsEveryInput )
{
    for( int state = S::OFFLINE; state <= S::SETTING_BUDDY_LIST; ++state )
    {
        Talk talk;
        talk.bringTo( state );
        talk.ann.instance.set( u"SIP_Status", u"x" );
        talk.ann.service->pass( 0 );
        EXPECT_EQ( S::_getState( state ), talk.ann.instance.get( u"SIP_Status" ) );
    }
}
