// The table of the dispatch service as data: every row leads to its state, and every pair of state and input that is not in it changes
// nothing but one warning.
#include "support/TestLog.h"
#include "unit/signalling/TestDispatch.h"

namespace
{
using S = GDispatchService;

// UPDATE by what has elapsed; responses with code 200, and those that end in _BAD with 500.
enum Feed
{
    UPDATE,
    UPDATE_RETRY,
    UPDATE_TIMEOUT,
    EVENT_OTHER,
    CONNECT,
    DISCONNECT,
    RESET,
    COMMAND_OTHER,
    REQUEST,
    STUN,
    STUN_BAD,
    REFRESH,
    REFRESH_BAD,
    OPENTURN,
    OPENTURN_BAD,
    PING,
    PING_BAD,
    MAPPING,
    MAPPING_BAD,
    DEVICEGUID,
    DEVICEGUID_BAD,
    REGISTER,
    REGISTER_BAD,
    UNREGISTER,
    UNREGISTER_BAD,
    OTHER,
    OTHER_BAD,
    FEED_COUNT
};
const char16_t* const RESPONSE_METHODS[] = { u"STUN",       u"STUN",     u"OPENTURN",   u"PING", u"PING",
                                             u"DEVICEGUID", u"REGISTER", u"UNREGISTER", u"OTHER" };

struct Row
{
    S::State state;
    Feed feed;
    S::State next;
    S::State nextRobust;
    Row( S::State from, Feed what, S::State to ) : Row( from, what, to, to ) {}
    Row( S::State from, Feed what, S::State to, S::State robust )
        : state( from ), feed( what ), next( to ), nextRobust( robust )
    {
    }
};
const Row ROWS[] = {
    { S::OFFLINE, UPDATE, S::OFFLINE },
    { S::OFFLINE, UPDATE_RETRY, S::OFFLINE },
    { S::OFFLINE, UPDATE_TIMEOUT, S::OFFLINE },
    { S::OFFLINE, RESET, S::OFFLINE },
    { S::OFFLINE, CONNECT, S::STUN },
    { S::STUN, UPDATE_TIMEOUT, S::TURN },
    { S::STUN, UPDATE_RETRY, S::STUN },
    { S::STUN, UPDATE, S::STUN },
    { S::STUN, STUN, S::STUN },
    { S::STUN, STUN_BAD, S::STUN },
    { S::STUN, REFRESH, S::STUN },
    { S::STUN, REFRESH_BAD, S::STUN },
    { S::STUN, RESET, S::OFFLINE },
    { S::TURN, UPDATE_TIMEOUT, S::OFFLINE },
    { S::TURN, UPDATE_RETRY, S::TURN },
    { S::TURN, UPDATE, S::TURN },
    { S::TURN, OPENTURN, S::CHOOSESERVER },
    { S::TURN, OPENTURN_BAD, S::OFFLINE },
    { S::TURN, RESET, S::OFFLINE },
    { S::CHOOSESERVER, UPDATE_TIMEOUT, S::OFFLINE },
    { S::CHOOSESERVER, UPDATE_RETRY, S::CHOOSESERVER },
    { S::CHOOSESERVER, UPDATE, S::CHOOSESERVER },
    { S::CHOOSESERVER, PING, S::REGISTERING },
    { S::CHOOSESERVER, PING_BAD, S::REGISTERING },
    { S::CHOOSESERVER, MAPPING, S::REGISTERING },
    { S::CHOOSESERVER, MAPPING_BAD, S::REGISTERING },
    { S::CHOOSESERVER, RESET, S::OFFLINE },
    { S::DEVICEGUID, UPDATE_TIMEOUT, S::OFFLINE },
    { S::DEVICEGUID, UPDATE_RETRY, S::DEVICEGUID },
    { S::DEVICEGUID, UPDATE, S::DEVICEGUID },
    { S::DEVICEGUID, DEVICEGUID, S::REGISTERING },
    { S::DEVICEGUID, DEVICEGUID_BAD, S::OFFLINE },
    { S::DEVICEGUID, RESET, S::OFFLINE },
    { S::REGISTERING, UPDATE_TIMEOUT, S::OFFLINE },
    { S::REGISTERING, UPDATE_RETRY, S::REGISTERING },
    { S::REGISTERING, UPDATE, S::REGISTERING },
    { S::REGISTERING, REGISTER, S::ONLINE },
    { S::REGISTERING, REGISTER_BAD, S::DEVICEGUID, S::REGISTERING },
    { S::REGISTERING, RESET, S::OFFLINE },
    { S::ONLINE, UPDATE, S::ONLINE },
    { S::ONLINE, UPDATE_RETRY, S::ONLINE },
    { S::ONLINE, UPDATE_TIMEOUT, S::ONLINE },
    { S::ONLINE, MAPPING, S::ONLINE },
    { S::ONLINE, MAPPING_BAD, S::ONLINE },
    { S::ONLINE, REFRESH, S::ONLINE },
    { S::ONLINE, REFRESH_BAD, S::ONLINE },
    { S::ONLINE, REGISTER, S::ONLINE },
    { S::ONLINE, REGISTER_BAD, S::ONLINE },
    { S::ONLINE, DISCONNECT, S::UNREGISTERING },
    { S::ONLINE, RESET, S::OFFLINE },
    { S::REREGISTERING, UPDATE, S::REREGISTERING },
    { S::REREGISTERING, UPDATE_RETRY, S::REREGISTERING },
    { S::REREGISTERING, UPDATE_TIMEOUT, S::REREGISTERING },
    { S::REREGISTERING, MAPPING, S::REREGISTERING },
    { S::REREGISTERING, MAPPING_BAD, S::REREGISTERING },
    { S::REREGISTERING, REFRESH, S::REREGISTERING },
    { S::REREGISTERING, REFRESH_BAD, S::REREGISTERING },
    { S::REREGISTERING, REGISTER, S::ONLINE },
    { S::REREGISTERING, REGISTER_BAD, S::ONLINE },
    { S::REREGISTERING, DISCONNECT, S::UNREGISTERING },
    { S::REREGISTERING, RESET, S::OFFLINE },
    { S::UNREGISTERING, UPDATE_TIMEOUT, S::OFFLINE },
    { S::UNREGISTERING, UPDATE_RETRY, S::UNREGISTERING },
    { S::UNREGISTERING, UPDATE, S::UNREGISTERING },
    { S::UNREGISTERING, UNREGISTER, S::OFFLINE },
    { S::UNREGISTERING, UNREGISTER_BAD, S::OFFLINE },
    { S::UNREGISTERING, RESET, S::OFFLINE },
};

bool isInTable( int state, int feed )
{
    return std::any_of( std::begin( ROWS ), std::end( ROWS ),
                        [&]( const Row& row ) { return row.state == state && row.feed == feed; } );
}

class DispatchTable : public TestDispatch
{
protected:
    // Offline again, with nothing left of what was before.
    void renew( bool robust )
    {
        feed( RESET );
        for( const GWStringView name : { u"Global_SIP_Host", u"Pretend_Firewall", u"Disable_UDP_Recv" } )
            instance->clear( name );
        instance->set( u"Local_Device_GUID", u"device1" );
        instance->set( u"Robust_Signalling", robust ? 1 : 0 );
        instance->set( u"Global_SIP_Host_List", GStringList{ sip.host( ), sip2.host( ) } );
        forget( );
    }
    // Everything that was sent so far.
    bool forget( )
    {
        bool any = false;
        GString data;
        GHTTPHeaders message;
        for( TestUDPHost* host : { &direct, &punched, &unpunched, &refresh, &sip, &sip2 } )
            while( host->hearRaw( data ) ) any = true;
        while( relay.hearNow( message ) ) any = true;
        while( !notification( ).empty( ) ) any = true;
        return any;
    }
    void bringTo( S::State wanted )
    {
        GHTTPHeaders open;
        if( wanted == S::DEVICEGUID ) instance->clear( u"Local_Device_GUID" );
        switch( wanted )
        {
        case S::OFFLINE: break;
        case S::STUN: connect( ); break;
        case S::TURN: toTURN( open ); break;
        case S::CHOOSESERVER: toChooseServer( ); break;
        case S::DEVICEGUID:
            toChooseServer( );
            feed( PING );
            break;
        case S::REGISTERING: toRegistering( ); break;
        case S::ONLINE: toOnline( ); break;
        case S::REREGISTERING:
            toOnline( );
            clock.advance( 900100000 );
            feed( UPDATE );
            break;
        case S::UNREGISTERING:
            toOnline( );
            feed( DISCONNECT );
            break;
        }
        ASSERT_EQ( state( ), wanted );
    }
    void feed( int what )
    {
        S::Input in;
        GHTTPHeaders request;
        GHTTPHeaders response;
        if( what <= EVENT_OTHER )
        {
            clock.advance( what == UPDATE_RETRY ? 1100000 : what == UPDATE_TIMEOUT ? 5600000 : 0 );
            in.eventID = what == EVENT_OTHER ? 2 : 1;
        }
        else if( what < REQUEST )
        {
            const char16_t* const commands[] = { u"CONNECT", u"DISCONNECT", u"RESET", u"OTHER" };
            in.command = commands[what - CONNECT];
        }
        else if( what == REQUEST )
        {
            request.setMethod( u"PING" );
            in.recvRequest = &request;
            in.fromRemoteHost = sip.host( );
        }
        else
        {
            compose( what, request, response );
            in.originalRequest = &request;
            in.recvResponse = &response;
            in.fromRemoteHost = what <= STUN_BAD ? direct.host( ) : what <= REFRESH_BAD ? refresh.host( ) : sip.host( );
            in.isMappingTest = what == MAPPING || what == MAPPING_BAD;
        }
        service->_fsm_onInput( in );
    }
    // An answer with all that any of them carries, and what it answers.
    void compose( int what, GHTTPHeaders& request, GHTTPHeaders& response ) const
    {
        request.setMethod( RESPONSE_METHODS[( what - STUN ) / 2] );
        request.set( u"CSeq", u"7 (GDispatchService)" );
        request.set( u"Global-Host", GLOBAL_HOST );
        request.set( u"Timestamp", static_cast<int64_t>( TestClock::now( ) ) );
        if( what == REFRESH || what == REFRESH_BAD ) request.set( u"Delay", 1000000 );
        response.setResponse( ( what - STUN ) % 2 ? 500 : 200, u"text" );
        for( const GWStringView name : { u"Global-Host", u"Observed-Host", u"Reported-Host" } )
            response.set( name, GLOBAL_HOST );
        response.set( u"CSeq", request.get( u"CSeq" ) );
        response.set( u"Device-GUID", u"fresh" );
    }
};
} // namespace

TEST_F( DispatchTable, EveryRowLeadsToItsState )
{
    TestLog::allow( "WARNING" );
    for( const bool robust : { false, true } )
        for( const Row& row : ROWS )
        {
            renew( robust );
            bringTo( row.state );
            feed( row.feed );
            EXPECT_EQ( state( ), robust ? row.nextRobust : row.next )
                << "state " << row.state << ", input " << row.feed << ", robust " << robust;
            EXPECT_EQ( TestLog::count( "ignored, no state change." ), 0 )
                << "state " << row.state << ", input " << row.feed;
        }
}

TEST_F( DispatchTable, EveryOtherPairChangesNothingButOneWarning )
{
    TestLog::allow( "WARNING" );
    for( const bool robust : { false, true } )
        for( int from = S::OFFLINE; from <= S::UNREGISTERING; ++from )
        {
            renew( robust );
            bringTo( static_cast<S::State>( from ) );
            forget( );
            for( int what = 0; what < FEED_COUNT; ++what )
            {
                if( isInTable( from, what ) ) continue;
                const int warnings = TestLog::count( "WARNING" );
                const int ignored = TestLog::count( "ignored, no state change." );
                const uint64_t generation = instance->getGeneration( );
                feed( what );
                const bool refused = what > REQUEST && ( what - STUN ) % 2;
                const std::string pair = "state " + std::to_string( from ) + ", input " + std::to_string( what );
                EXPECT_EQ( state( ), from ) << pair;
                EXPECT_EQ( TestLog::count( "ignored, no state change." ) - ignored, 1 ) << pair;
                // The gate tells of every answer that is a refusal, whatever it leads to.
                EXPECT_EQ( TestLog::count( "WARNING" ) - warnings, refused ? 2 : 1 ) << pair;
                EXPECT_EQ( instance->getGeneration( ), generation ) << pair;
                EXPECT_FALSE( forget( ) ) << pair;
            }
        }
}
