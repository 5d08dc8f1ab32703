#include "server/signalling/GSignallingService.h"

#include "base/GRandom.h"
#include "support/CountAllocations.h"
#include "unit/server/ServerFixture.h"

namespace
{
constexpr char ANN[] = "ann@velmora.local";
constexpr char BEN[] = "ben@velmora.local";
constexpr char ANN_HOST[] = "198.51.100.1:4000";
constexpr char BEN_HOST[] = "198.51.100.2:4000";
constexpr char16_t ANN_W[] = u"ann@velmora.local";
constexpr char16_t BEN_W[] = u"ben@velmora.local";

class GSignallingServiceTest : public ServerFixture
{
protected:
    GSignallingServiceTest( ) : service( config, store, metrics )
    {
        service.setListeners( { "127.0.0.1:1", "127.0.0.1:2" } );
        for( const char* user : { ANN, BEN } ) store.addAccount( { user, "hash", "", now } );
        store.addLogon( ANN, "198.51.100.1", now );
        store.addLogon( BEN, "198.51.100.2", now );
        for( const char* device : { "dev1", "dev2", "dev3" } ) store.addDevice( device, now );
    }
    GDatagramList send( const GString& from, const GHTTPHeaders& message, size_t listener = 0 )
    {
        GDatagramList out;
        service.onDatagram( listener, from, message.serialize( ), now, out );
        return out;
    }
    GHTTPHeaders registration( const GWString& user, const GWString& device, int cseq = 1 )
    {
        return request( u"REGISTER", cseq,
                        { { u"From", user },
                          { u"Device-GUID", device },
                          { u"Version", u"764" },
                          { u"Route-List", u"local://10.0.0.1:4000, restricted://198.51.100.1:4000" } } );
    }
    GHTTPHeaders invite( const GWString& to, int cseq = 7 )
    {
        return request( u"INVITE", cseq,
                        { { u"From", ANN_W },
                          { u"From-Device-GUID", u"dev1" },
                          { u"To", to },
                          { u"Try-Route-List", u"local://10.0.0.1:4000" } } );
    }
    void registerBoth( )
    {
        EXPECT_EQ( send( ANN_HOST, registration( ANN_W, u"dev1" ) ).size( ), 1u );
        EXPECT_EQ( send( BEN_HOST, registration( BEN_W, u"dev2" ), 1 ).size( ), 1u );
    }
    GSignallingService service;
};
int codeOf( const GDatagramList& out )
{
    return out.size( ) == 1 ? parsed( out[0].bytes ).getResponse( ) : -1;
}
} // namespace

TEST_F( GSignallingServiceTest, APingTakesNothingFromTheHeap )
{
    const GString from = "198.51.100.100:40000";
    const GString bytes = request( u"PING", 7, { { u"Global-Host", u"203.0.113.100:40001" } } ).serialize( );
    GDatagramList out;
    const auto ping = [&]
    {
        service.onDatagram( 0, from, bytes, now, out );
        EXPECT_EQ( out.size( ), 1u );
        out.clear( );
    };
    ping( );
    EXPECT_EQ( countAllocations( ping ), 0 );
}
TEST_F( GSignallingServiceTest, PingTellsTheSourceAndEchoesTheReport )
{
    const auto out =
        send( ANN_HOST, request( u"PING", 3, { { u"Global-Host", u"1.2.3.4:5" }, { u"Timestamp", u"1" } } ), 1 );
    ASSERT_EQ( out.size( ), 1u );
    EXPECT_EQ( out[0].socket, 1u );
    EXPECT_EQ( out[0].to, ANN_HOST );
    const GHTTPHeaders answer = parsed( out[0].bytes );
    EXPECT_EQ( answer.getResponse( ), 200 );
    EXPECT_EQ( answer.get( u"Observed-Host" ), u"198.51.100.1:4000" );
    EXPECT_EQ( answer.get( u"Reported-Host" ), u"1.2.3.4:5" );
    EXPECT_EQ( answer.get( u"CSeq" ), u"3 (GDispatchService)" );
}
TEST_F( GSignallingServiceTest, DeviceIdsAreFreshAndRepeatsGetTheSameOne )
{
    const GHTTPHeaders first = parsed( send( ANN_HOST, request( u"DEVICEGUID", 1 ) ).at( 0 ).bytes );
    const GHTTPHeaders again = parsed( send( ANN_HOST, request( u"DEVICEGUID", 1 ) ).at( 0 ).bytes );
    const GHTTPHeaders other = parsed( send( ANN_HOST, request( u"DEVICEGUID", 2 ) ).at( 0 ).bytes );
    EXPECT_TRUE( GValidDeviceID( first.get( u"Device-GUID" ) ) );
    EXPECT_EQ( first.get( u"Device-GUID" ).find( u'-' ), GWString::npos );
    EXPECT_EQ( first.get( u"Device-GUID" ), again.get( u"Device-GUID" ) );
    EXPECT_NE( first.get( u"Device-GUID" ), other.get( u"Device-GUID" ) );
    EXPECT_TRUE( store.hasDevice( GWideToUTF8( first.get( u"Device-GUID" ) ) ) );
}
TEST_F( GSignallingServiceTest, ADeviceIdNeedsALogonFromTheAddress )
{
    EXPECT_TRUE( send( "198.51.100.9:1", request( u"DEVICEGUID", 1 ) ).empty( ) );
    now += config.logonSeconds * SECOND + SECOND;
    EXPECT_TRUE( send( ANN_HOST, request( u"DEVICEGUID", 1 ) ).empty( ) );
}
TEST_F( GSignallingServiceTest, RegisterIsTakenOnlyFromAnAddressOfThatUsersLogon )
{
    EXPECT_TRUE( send( "198.51.100.2:4000", registration( ANN_W, u"dev1" ) ).empty( ) );
    EXPECT_EQ( codeOf( send( "198.51.100.1:9999", registration( ANN_W, u"dev1" ) ) ), 200 );
    EXPECT_EQ( service.registrationCount( ), 1u );
}
TEST_F( GSignallingServiceTest, BehindTheRelayTheConnectionsAddressCounts )
{
    EXPECT_TRUE( send( "203.0.113.1:40000", registration( ANN_W, u"dev1" ) ).empty( ) );
    store.putAllocation( "203.0.113.1:40000", "198.51.100.1" );
    EXPECT_EQ( codeOf( send( "203.0.113.1:40000", registration( ANN_W, u"dev1" ) ) ), 200 );
}
TEST_F( GSignallingServiceTest, AnUnknownDeviceIs404AndEveryOtherRefusalIsSilence )
{
    EXPECT_EQ( codeOf( send( ANN_HOST, registration( ANN_W, u"never" ) ) ), 404 );
    EXPECT_TRUE( send( ANN_HOST, registration( u"nobody@velmora.local", u"dev1" ) ).empty( ) );
    EXPECT_TRUE( send( ANN_HOST, registration( u"Ann@velmora.local", u"dev1" ) ).empty( ) );
    EXPECT_TRUE( send( ANN_HOST, registration( ANN_W, u"../x" ) ).empty( ) );
    GHTTPHeaders lacking = registration( ANN_W, u"dev1" );
    lacking.erase( u"Version" );
    EXPECT_TRUE( send( ANN_HOST, lacking ).empty( ) );
    GHTTPHeaders routes = registration( ANN_W, u"dev1" );
    routes.set( u"Route-List", u"local://255.255.255.255:1, local://127.0.0.1:5, x, ://1.2.3.4:5" );
    EXPECT_TRUE( send( ANN_HOST, routes ).empty( ) ) << "no route that a peer could use";
}
TEST_F( GSignallingServiceTest, RegistrationsSurviveTheProcess )
{
    registerBoth( );
    GSignallingService next( config, store, metrics );
    next.setListeners( { "127.0.0.1:1", "127.0.0.1:2" } );
    next.load( now );
    EXPECT_EQ( next.registrationCount( ), 2u );
    GDatagramList out;
    next.onDatagram( 0, ANN_HOST, invite( BEN_W ).serialize( ), now, out );
    ASSERT_EQ( out.size( ), 2u );
    EXPECT_EQ( out[0].socket, 1u ) << "forwarded from the host that ben registered with";
}
TEST_F( GSignallingServiceTest, RegistrationsEndAfterHalfAnHour )
{
    registerBoth( );
    now += 1799 * SECOND;
    EXPECT_EQ( send( ANN_HOST, invite( BEN_W, 8 ) ).size( ), 2u );
    now += 2 * SECOND;
    EXPECT_TRUE( send( ANN_HOST, invite( BEN_W, 9 ) ).empty( ) );
    service.expire( now );
    EXPECT_EQ( service.registrationCount( ), 0u );
    EXPECT_TRUE( store.listRegistrations( ).empty( ) );
}
TEST_F( GSignallingServiceTest, WhoStaysOnLineIsNotRefusedAfterADayUnlessThePasswordChanges )
{
    registerBoth( );
    const uint64_t end = now + 50 * 3600 * SECOND;
    for( int cseq = 2; now < end; ++cseq, now += 900 * SECOND )
        ASSERT_EQ( codeOf( send( ANN_HOST, registration( ANN_W, u"dev1", cseq ) ) ), 200 );
    // Another port of that address is another program: his is the time of the last renewal.
    EXPECT_EQ( codeOf( send( "198.51.100.1:4001", registration( ANN_W, u"dev3", 1 ) ) ), 200 );
    EXPECT_TRUE( store.setPassword( ANN, "new hash" ) );
    EXPECT_TRUE( send( ANN_HOST, registration( ANN_W, u"dev1", 9999 ) ).empty( ) );
}
TEST_F( GSignallingServiceTest, ARemovedAccountIsForgotten )
{
    registerBoth( );
    store.removeAccount( BEN );
    service.expire( now );
    EXPECT_EQ( codeOf( send( ANN_HOST, invite( BEN_W ) ) ), 400 );
}
TEST_F( GSignallingServiceTest, InviteGoesByteForByteToEachDeviceAndIsAnswered100 )
{
    registerBoth( );
    EXPECT_EQ( codeOf( send( "198.51.100.2:5000", registration( BEN_W, u"dev3" ) ) ), 200 );
    const GHTTPHeaders message = invite( BEN_W );
    const auto out = send( ANN_HOST, message );
    ASSERT_EQ( out.size( ), 3u );
    EXPECT_EQ( out[0].to, BEN_HOST );
    EXPECT_EQ( out[0].bytes, message.serialize( ) );
    EXPECT_EQ( out[1].to, "198.51.100.2:5000" );
    EXPECT_EQ( out[1].bytes, message.serialize( ) );
    const GHTTPHeaders answer = parsed( out[2].bytes );
    EXPECT_EQ( out[2].to, ANN_HOST );
    EXPECT_EQ( answer.getResponse( ), 100 );
    EXPECT_EQ( answer.get( u"Device-List" ), u"dev2, dev3" );
    EXPECT_EQ( answer.get( u"dev2-Route-List" ), u"local://10.0.0.1:4000, restricted://198.51.100.1:4000" );
    EXPECT_EQ( answer.get( u"CSeq" ), u"7 (GDispatchService)" );
}
TEST_F( GSignallingServiceTest, ARepeatedInviteIsAnsweredAgainAndForwardedOnce )
{
    registerBoth( );
    const auto first = send( ANN_HOST, invite( BEN_W ) );
    now += 8 * SECOND;
    const auto again = send( ANN_HOST, invite( BEN_W ) );
    ASSERT_EQ( again.size( ), 1u );
    EXPECT_EQ( again[0].to, ANN_HOST );
    EXPECT_EQ( again[0].bytes, first.back( ).bytes );
    now += 20 * SECOND;
    EXPECT_EQ( send( ANN_HOST, invite( BEN_W ) ).size( ), 2u ) << "numbers start over with a session";
}
TEST_F( GSignallingServiceTest, AnInviteOfNobodyIs400 )
{
    registerBoth( );
    EXPECT_EQ( codeOf( send( ANN_HOST, invite( u"carl@velmora.local" ) ) ), 400 );
    EXPECT_EQ( codeOf( send( ANN_HOST, invite( ANN_W ) ) ), 400 ) << "the caller's own device is none to call";
}
TEST_F( GSignallingServiceTest, RequestsCountOnlyFromTheSourceOfTheRegistration )
{
    registerBoth( );
    EXPECT_TRUE( send( "198.51.100.1:4001", invite( BEN_W ) ).empty( ) );
    EXPECT_TRUE( send( BEN_HOST, invite( BEN_W ) ).empty( ) ) << "another user's source";
    GHTTPHeaders device = invite( BEN_W );
    device.set( u"From-Device-GUID", u"dev2" );
    EXPECT_TRUE( send( ANN_HOST, device ).empty( ) );
    EXPECT_TRUE( send( BEN_HOST, request( u"GETBUDDYLIST", 1, { { u"From", ANN_W } } ) ).empty( ) );
    EXPECT_TRUE(
        send( BEN_HOST, request( u"UNREGISTER", 1, { { u"From", ANN_W }, { u"Device-GUID", u"dev1" } } ) ).empty( ) );
    EXPECT_EQ( service.registrationCount( ), 2u );
}
TEST_F( GSignallingServiceTest, UnregisterEndsTheRegistrationAndItsRepeatIsAnswered )
{
    registerBoth( );
    const GHTTPHeaders message = request( u"UNREGISTER", 9, { { u"From", ANN_W }, { u"Device-GUID", u"dev1" } } );
    EXPECT_EQ( codeOf( send( ANN_HOST, message ) ), 200 );
    EXPECT_EQ( codeOf( send( ANN_HOST, message ) ), 200 );
    EXPECT_TRUE( send( ANN_HOST, invite( BEN_W ) ).empty( ) );
    EXPECT_EQ( service.registrationCount( ), 1u );
}
TEST_F( GSignallingServiceTest, OneHostIsOneProgram )
{
    registerBoth( );
    store.addLogon( BEN, "198.51.100.1", now );
    EXPECT_EQ( codeOf( send( ANN_HOST, registration( BEN_W, u"dev3" ) ) ), 200 );
    EXPECT_TRUE( send( ANN_HOST, invite( BEN_W ) ).empty( ) );
    EXPECT_EQ( service.registrationCount( ), 2u );
}
TEST_F( GSignallingServiceTest, ListsAreKeptInOrder )
{
    registerBoth( );
    const GHTTPHeaders get = request( u"GETBUDDYLIST", 1, { { u"From", ANN_W } } );
    GHTTPHeaders answer = parsed( send( ANN_HOST, get ).at( 0 ).bytes );
    EXPECT_TRUE( answer.contains( u"Buddy-List" ) );
    EXPECT_EQ( answer.get( u"Buddy-List" ), u"" );
    const GHTTPHeaders set = request(
        u"SETBUDDYLIST", 2, { { u"From", ANN_W }, { u"Buddy-List", u"zoe@x.y, ben@velmora.local, BAD, zoe@x.y" } } );
    EXPECT_EQ( codeOf( send( ANN_HOST, set ) ), 200 );
    answer = parsed( send( ANN_HOST, get ).at( 0 ).bytes );
    EXPECT_EQ( answer.get( u"Buddy-List" ), u"zoe@x.y, ben@velmora.local" );
}
TEST_F( GSignallingServiceTest, AnEmptyListCountsOnlyAfterAnAnsweredGet )
{
    store.addBuddy( ANN, BEN );
    registerBoth( );
    const auto empty = []( int cseq ) {
        return request( u"SETBUDDYLIST", cseq, { { u"From", ANN_W }, { u"Buddy-List", u"" } } );
    };
    EXPECT_EQ( codeOf( send( ANN_HOST, empty( 2 ) ) ), 200 );
    EXPECT_EQ( store.getBuddies( ANN ).size( ), 1u );
    send( ANN_HOST, request( u"GETBUDDYLIST", 3, { { u"From", ANN_W } } ) );
    EXPECT_EQ( codeOf( send( ANN_HOST, registration( ANN_W, u"dev1", 4 ) ) ), 200 ) << "the same registration goes on";
    EXPECT_EQ( codeOf( send( ANN_HOST, empty( 5 ) ) ), 200 );
    EXPECT_TRUE( store.getBuddies( ANN ).empty( ) );
}
TEST_F( GSignallingServiceTest, ANewRegistrationMustFetchItsListAnew )
{
    store.addBuddy( ANN, BEN );
    registerBoth( );
    send( ANN_HOST, request( u"GETBUDDYLIST", 3, { { u"From", ANN_W } } ) );
    send( ANN_HOST, request( u"UNREGISTER", 4, { { u"From", ANN_W }, { u"Device-GUID", u"dev1" } } ) );
    send( ANN_HOST, registration( ANN_W, u"dev1", 5 ) );
    send( ANN_HOST, request( u"SETBUDDYLIST", 6, { { u"From", ANN_W }, { u"Buddy-List", u"" } } ) );
    EXPECT_EQ( store.getBuddies( ANN ).size( ), 1u );
}
TEST_F( GSignallingServiceTest, AddingABuddyNeedsHisAccountAndIsKept )
{
    registerBoth( );
    const auto add = [this]( const GWString& name ) {
        return codeOf( send( ANN_HOST, request( u"ADDBUDDY", 5, { { u"From", ANN_W }, { u"Buddy-GUID", name } } ) ) );
    };
    EXPECT_EQ( add( BEN_W ), 200 );
    EXPECT_EQ( add( BEN_W ), 200 );
    EXPECT_EQ( add( u"nobody@velmora.local" ), 404 );
    EXPECT_EQ( store.getBuddies( ANN ), std::vector<GString>{ BEN } );
}
TEST_F( GSignallingServiceTest, ARepeatedRequestChangesNothingAgain )
{
    registerBoth( );
    const GHTTPHeaders set = request( u"SETBUDDYLIST", 2, { { u"From", ANN_W }, { u"Buddy-List", u"zoe@x.y" } } );
    const auto first = send( ANN_HOST, set );
    send( ANN_HOST, request( u"ADDBUDDY", 3, { { u"From", ANN_W }, { u"Buddy-GUID", BEN_W } } ) );
    const auto again = send( ANN_HOST, set );
    ASSERT_EQ( again.size( ), 1u );
    EXPECT_EQ( again[0].bytes, first.at( 0 ).bytes );
    EXPECT_EQ( store.getBuddies( ANN ), ( std::vector<GString>{ "zoe@x.y", BEN } ) )
        << "a late repeat takes nobody away";
}
TEST_F( GSignallingServiceTest, AskingForAccountsHasALimit )
{
    config.contactRequestsPerHour = 3;
    service.reload( );
    registerBoth( );
    int cseq = 10;
    const auto add = [&]( const GWString& name ) {
        return codeOf(
            send( ANN_HOST, request( u"ADDBUDDY", ++cseq, { { u"From", ANN_W }, { u"Buddy-GUID", name } } ) ) );
    };
    for( const char16_t* name : { u"a@velmora.local", u"b@velmora.local", u"c@velmora.local" } )
        EXPECT_EQ( add( name ), 404 );
    EXPECT_EQ( add( BEN_W ), 429 );
    now += 1201 * SECOND;
    EXPECT_EQ( send( ANN_HOST, registration( ANN_W, u"dev1", 3 ) ).size( ), 1u );
    EXPECT_EQ( add( BEN_W ), 200 );
}
TEST_F( GSignallingServiceTest, IdentitiesThatNobodyUsesAreLimited )
{
    GString first;
    for( int i = 0; i < 1200; ++i )
    {
        const auto out = send( ANN_HOST, request( u"DEVICEGUID", 100 + i ) );
        if( !i ) first = GWideToUTF8( parsed( out.at( 0 ).bytes ).get( u"Device-GUID" ) );
        now += 1;
    }
    EXPECT_FALSE( store.hasDevice( first ) ) << "the oldest leave";
    EXPECT_TRUE( store.hasDevice( "dev1" ) );
    for( int i = 0; i < 100; ++i )
    {
        const GWString device = GConcat( u"used", i );
        store.addDevice( GWideToUTF8( device ), now, "198.51.100.1", 1000 );
        EXPECT_EQ( codeOf( send( ANN_HOST, registration( ANN_W, device ) ) ), 200 );
        now += 1;
    }
    EXPECT_FALSE( store.hasDevice( "used0" ) );
    EXPECT_TRUE( store.hasDevice( "used99" ) );
}
TEST_F( GSignallingServiceTest, ReportsAreStoredOnce )
{
    registerBoth( );
    const GHTTPHeaders report =
        request( u"BUGREPORT", 5, { { u"From", ANN_W }, { u"Email", u"a@b" }, { u"Text", u"it\nbroke" } } );
    EXPECT_EQ( codeOf( send( ANN_HOST, report ) ), 200 );
    EXPECT_EQ( codeOf( send( ANN_HOST, report ) ), 200 );
    EXPECT_EQ( store.countBugReports( ANN, 0 ), 1 );
}
TEST_F( GSignallingServiceTest, MalformedBytesAreCountedAndNeverAnswered )
{
    registerBoth( );
    GDatagramList out;
    const GString good = invite( BEN_W ).serialize( );
    for( size_t cut = 0; cut < good.size( ); ++cut ) service.onDatagram( 0, ANN_HOST, good.substr( 0, cut ), now, out );
    service.onDatagram( 0, ANN_HOST, good + "x", now, out );
    service.onDatagram( 0, ANN_HOST, "HTTP/1.1 200 OK\r\nCSeq: 1\r\n\r\n", now, out );
    service.onDatagram( 0, ANN_HOST, GString( 9000, 'A' ) + "\r\n\r\n", now, out );
    GRandomSeed( 4 );
    for( int i = 0; i < 2000; ++i )
    {
        GString noise = good;
        for( int k = 0; k < 5; ++k )
            noise[static_cast<size_t>( GRandom( ) ) % noise.size( )] = static_cast<char>( GRandom( ) );
        const size_t before = out.size( );
        service.onDatagram( 0, "203.0.113.77:7", noise, now, out );
        EXPECT_EQ( out.size( ), before );
    }
    EXPECT_TRUE( out.empty( ) );
    EXPECT_GT( metrics.get( "signalling", "other", "malformed" ), good.size( ) );
}
