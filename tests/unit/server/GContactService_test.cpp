// Requests for a contact, through the signalling role that carries them.
#include "server/signalling/GSignallingService.h"

#include "unit/server/ServerFixture.h"

namespace
{
constexpr char ANN[] = "ann@velmora.local";
constexpr char BEN[] = "ben@velmora.local";
constexpr char16_t ANN_W[] = u"ann@velmora.local";
constexpr char16_t BEN_W[] = u"ben@velmora.local";
constexpr char ANN_HOST[] = "198.51.100.1:4000";
constexpr char BEN_HOST[] = "198.51.100.2:4000";
constexpr char BEN_OTHER[] = "198.51.100.2:5000";

class GContactServiceTest : public ServerFixture
{
protected:
    using Datagrams = GDatagramList;

    GContactServiceTest( )
    {
        config.contacts = "agreed";
        for( const char* user : { ANN, BEN } ) store.addAccount( { user, "hash", "", now } );
        store.addLogon( ANN, "198.51.100.1", now );
        store.addLogon( BEN, "198.51.100.2", now );
        for( const char* device : { "dev1", "dev2", "dev3" } ) store.addDevice( device, now );
        restart( );
    }
    void restart( )
    {
        service = std::make_unique<GSignallingService>( config, store, metrics );
        service->setListeners( { "127.0.0.1:1", "127.0.0.1:2" } );
        service->load( now );
    }
    Datagrams send( const GString& from, const GHTTPHeaders& message, size_t listener = 0 )
    {
        Datagrams out;
        service->onDatagram( listener, from, message.serialize( ), now, out );
        return out;
    }
    Datagrams enter( const GString& host, const GWString& user, const GWString& device, bool capable = true )
    {
        GHTTPHeaders message = request( u"REGISTER", ++cseq,
                                        { { u"From", user },
                                          { u"Device-GUID", device },
                                          { u"Version", u"764" },
                                          { u"Route-List", u"local://10.0.0.1:4000" } } );
        if( capable ) message.set( u"Capabilities", u"other, contacts" );
        return send( host, message, host == BEN_OTHER ? 1 : 0 );
    }
    Datagrams add( const GString& host, const GWString& user, const GWString& buddy )
    {
        return send( host, request( u"ADDBUDDY", ++cseq, { { u"From", user }, { u"Buddy-GUID", buddy } } ) );
    }
    Datagrams answer( const GWString& word, const GString& host = BEN_HOST, const GWString& device = u"dev2" )
    {
        return send( host, request( u"CONTACTANSWER", ++cseq,
                                    { { u"From", BEN_W },
                                      { u"From-Device-GUID", device },
                                      { u"Buddy-GUID", ANN_W },
                                      { u"Answer", word } } ) );
    }
    int invite( const GString& host, const GWString& from, const GWString& device, const GWString& to )
    {
        const Datagrams out = send( host, request( u"INVITE", ++cseq,
                                                   { { u"From", from },
                                                     { u"From-Device-GUID", device },
                                                     { u"To", to },
                                                     { u"Try-Route-List", u"local://10.0.0.1:4000" } } ) );
        return out.empty( ) ? 0 : parsed( out.back( ).bytes ).getResponse( );
    }
    void acknowledge( const GDatagramList::Item& told )
    {
        GHTTPHeaders ok;
        ok.setResponse( 200, u"OK" );
        ok.set( u"CSeq", parsed( told.bytes ).get( u"CSeq" ) );
        EXPECT_TRUE( send( told.to, ok ).empty( ) );
    }
    Datagrams after( uint64_t seconds )
    {
        Datagrams out;
        for( uint64_t i = 0; i < seconds; ++i )
        {
            now += SECOND;
            service->update( now, out );
        }
        return out;
    }
    std::unique_ptr<GSignallingService> service;
    int cseq = 0;
};
int codeOf( const GDatagramList& out )
{
    return out.empty( ) ? 0 : parsed( out[0].bytes ).getResponse( );
}
// State of what a device is told, in the form "host state".
GString toldOf( const GDatagramList& out )
{
    GString text;
    for( const GDatagramList::Item& datagram : out )
    {
        const GHTTPHeaders message = parsed( datagram.bytes );
        if( !message.isMethod( u"CONTACTREQUEST" ) ) continue;
        EXPECT_EQ( message.get( u"From" ), ANN_W );
        EXPECT_EQ( message.get( u"To" ), BEN_W );
        text += ( text.empty( ) ? "" : ", " ) + datagram.to + " " + GWideToUTF8( message.get( u"State" ) );
    }
    return text;
}
} // namespace

TEST_F( GContactServiceTest, AnInviteReachesOnlyWhoHasTheCallerOnHisList )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    EXPECT_EQ( invite( ANN_HOST, ANN_W, u"dev1", BEN_W ), 400 );
    add( ANN_HOST, ANN_W, BEN_W );
    EXPECT_EQ( invite( ANN_HOST, ANN_W, u"dev1", BEN_W ), 400 ) << "one side is not enough";
    EXPECT_EQ( invite( BEN_HOST, BEN_W, u"dev2", ANN_W ), 100 );
    add( BEN_HOST, BEN_W, ANN_W );
    EXPECT_EQ( invite( ANN_HOST, ANN_W, u"dev1", BEN_W ), 100 );
    config.contacts = "open";
    store.setBuddies( BEN, { } );
    EXPECT_EQ( invite( ANN_HOST, ANN_W, u"dev1", BEN_W ), 100 );
}
TEST_F( GContactServiceTest, AStrangersInviteIsAnsweredAsIfNobodyWereThere )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    const GHTTPHeaders message = request( u"INVITE", 77,
                                          { { u"From", ANN_W },
                                            { u"From-Device-GUID", u"dev1" },
                                            { u"To", BEN_W },
                                            { u"Try-Route-List", u"local://10.0.0.1:4000" } } );
    const Datagrams offline = send( ANN_HOST, message );
    now += 60 * SECOND;
    enter( BEN_HOST, BEN_W, u"dev2" );
    const Datagrams refused = send( ANN_HOST, message );
    ASSERT_EQ( refused.size( ), 1u );
    EXPECT_EQ( refused[0].bytes, offline[0].bytes );
}
TEST_F( GContactServiceTest, OnesOwnOtherDevicesAreReached )
{
    enter( BEN_HOST, BEN_W, u"dev2" );
    enter( BEN_OTHER, BEN_W, u"dev3" );
    EXPECT_EQ( invite( BEN_HOST, BEN_W, u"dev2", BEN_W ), 100 );
}
TEST_F( GContactServiceTest, ANewRequestIsToldToCapableDevicesOnly )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    enter( BEN_OTHER, BEN_W, u"dev3", false );
    const Datagrams out = add( ANN_HOST, ANN_W, BEN_W );
    EXPECT_EQ( codeOf( out ), 200 );
    EXPECT_EQ( toldOf( out ), GString( BEN_HOST ) + " pending" );
    EXPECT_EQ( toldOf( add( ANN_HOST, ANN_W, BEN_W ) ), "" ) << "it waits already";
}
TEST_F( GContactServiceTest, OpenContactsNeedNoRequest )
{
    config.contacts = "open";
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    EXPECT_EQ( add( ANN_HOST, ANN_W, BEN_W ).size( ), 1u );
    EXPECT_TRUE( store.listRequests( BEN ).empty( ) );
}
TEST_F( GContactServiceTest, ItIsRepeatedFiveTimesUntilTheDeviceAnswers )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    const Datagrams first = add( ANN_HOST, ANN_W, BEN_W );
    EXPECT_TRUE( after( 1 ).empty( ) );
    const Datagrams second = after( 1 );
    ASSERT_EQ( second.size( ), 1u );
    EXPECT_EQ( second[0].bytes, first.back( ).bytes );
    EXPECT_EQ( after( 60 ).size( ), 4u );
    EXPECT_TRUE( service->isIdle( ) );
    const Datagrams again = enter( BEN_HOST, BEN_W, u"dev2" );
    EXPECT_EQ( toldOf( again ), GString( BEN_HOST ) + " pending" ) << "each registration tells it anew";
    acknowledge( again.back( ) );
    EXPECT_TRUE( service->isIdle( ) );
    EXPECT_TRUE( after( 60 ).empty( ) );
}
TEST_F( GContactServiceTest, OnlyTheDeviceItselfCanSayThatItHeard )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    GDatagramList::Item told = add( ANN_HOST, ANN_W, BEN_W ).back( );
    told.to = ANN_HOST;
    acknowledge( told );
    EXPECT_FALSE( service->isIdle( ) );
    EXPECT_EQ( metrics.get( "signalling", "other", "malformed" ), 1u );
    const Datagrams out = send( BEN_HOST, request( u"x", 0 ) );
    EXPECT_TRUE( out.empty( ) );
}
TEST_F( GContactServiceTest, ARepeatedRegisterTellsNothingTwice )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    add( ANN_HOST, ANN_W, BEN_W );
    EXPECT_EQ( enter( BEN_HOST, BEN_W, u"dev2" ).size( ), 2u );
    EXPECT_EQ( enter( BEN_HOST, BEN_W, u"dev2" ).size( ), 1u );
    EXPECT_EQ( enter( "198.51.100.2:4001", BEN_W, u"dev2" ).size( ), 2u ) << "from another port it may not have heard";
    EXPECT_EQ( after( 2 ).size( ), 1u );
}
TEST_F( GContactServiceTest, ItWaitsAcrossLogonsAndRestarts )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    add( ANN_HOST, ANN_W, BEN_W );
    now += 40 * 86400 * SECOND;
    store.addLogon( BEN, "198.51.100.2", now );
    restart( );
    EXPECT_EQ( toldOf( enter( BEN_HOST, BEN_W, u"dev2" ) ), GString( BEN_HOST ) + " pending" );
}
TEST_F( GContactServiceTest, ACapableDeviceIsKnownAfterARestart )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    enter( BEN_OTHER, BEN_W, u"dev3", false );
    restart( );
    EXPECT_EQ( toldOf( add( ANN_HOST, ANN_W, BEN_W ) ), GString( BEN_HOST ) + " pending" );
}
TEST_F( GContactServiceTest, AddingTheAskerAcceptsAndTheOtherDevicesLearnOfIt )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    enter( BEN_OTHER, BEN_W, u"dev3" );
    add( ANN_HOST, ANN_W, BEN_W );
    const Datagrams out = add( BEN_HOST, BEN_W, ANN_W );
    EXPECT_EQ( codeOf( out ), 200 );
    EXPECT_EQ( toldOf( out ), GString( BEN_OTHER ) + " answered" );
    EXPECT_EQ( out.back( ).socket, 1u ) << "from the host that this device registered with";
    EXPECT_TRUE( store.listRequests( BEN ).empty( ) );
    EXPECT_TRUE( store.listRequests( ANN ).empty( ) ) << "ann has him already";
    EXPECT_EQ( toldOf( after( 2 ) ), GString( BEN_OTHER ) + " answered" ) << "nobody is told the old state any more";
    EXPECT_EQ( invite( ANN_HOST, ANN_W, u"dev1", BEN_W ), 100 );
}
TEST_F( GContactServiceTest, AListWithTheAskerAcceptsToo )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    enter( BEN_OTHER, BEN_W, u"dev3" );
    add( ANN_HOST, ANN_W, BEN_W );
    const Datagrams out =
        send( BEN_HOST, request( u"SETBUDDYLIST", 99, { { u"From", BEN_W }, { u"Buddy-List", ANN_W } } ) );
    EXPECT_EQ( toldOf( out ), GString( BEN_OTHER ) + " answered" );
    EXPECT_TRUE( store.listRequests( BEN ).empty( ) );
}
TEST_F( GContactServiceTest, ARefusalEndsItAndTheNextAskingIsHeard )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    enter( BEN_OTHER, BEN_W, u"dev3" );
    add( ANN_HOST, ANN_W, BEN_W );
    const Datagrams out = answer( u"refuse" );
    EXPECT_EQ( codeOf( out ), 200 );
    EXPECT_EQ( toldOf( out ), GString( BEN_OTHER ) + " answered" );
    EXPECT_TRUE( store.listRequests( BEN ).empty( ) );
    EXPECT_EQ( invite( ANN_HOST, ANN_W, u"dev1", BEN_W ), 400 );
    EXPECT_EQ( toldOf( add( ANN_HOST, ANN_W, BEN_W ) ), GString( BEN_HOST ) + " pending, " + BEN_OTHER + " pending" );
    EXPECT_EQ( codeOf( answer( u"refuse", BEN_OTHER, u"dev3" ) ), 200 );
    EXPECT_EQ( codeOf( answer( u"refuse" ) ), 200 ) << "the second of two devices is answered as well";
}
TEST_F( GContactServiceTest, ABlockedUserMakesNoFurtherRequestAndCantTell )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    add( ANN_HOST, ANN_W, BEN_W );
    EXPECT_EQ( codeOf( answer( u"block" ) ), 200 );
    const Datagrams out = add( ANN_HOST, ANN_W, BEN_W );
    ASSERT_EQ( out.size( ), 1u );
    EXPECT_EQ( codeOf( out ), 200 );
    EXPECT_TRUE( store.listRequests( BEN ).empty( ) );
    restart( );
    EXPECT_EQ( add( ANN_HOST, ANN_W, BEN_W ).size( ), 1u ) << "also after a restart";
    config.contacts = "open";
    EXPECT_EQ( invite( ANN_HOST, ANN_W, u"dev1", BEN_W ), 400 );
}
TEST_F( GContactServiceTest, AddingABlockedUserUnblocksHim )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    answer( u"block" );
    add( ANN_HOST, ANN_W, BEN_W );
    add( BEN_HOST, BEN_W, ANN_W );
    EXPECT_EQ( invite( ANN_HOST, ANN_W, u"dev1", BEN_W ), 100 );
}
TEST_F( GContactServiceTest, AnswersCountOnlyFromTheAskedUsersOwnDevice )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    add( ANN_HOST, ANN_W, BEN_W );
    EXPECT_EQ( codeOf( answer( u"refuse", ANN_HOST ) ), 0 );
    EXPECT_EQ( codeOf( answer( u"refuse", "198.51.100.2:6000" ) ), 0 );
    EXPECT_EQ( codeOf( answer( u"refuse", BEN_HOST, u"dev3" ) ), 0 );
    EXPECT_EQ( codeOf( answer( u"maybe" ) ), 0 );
    EXPECT_EQ( store.listRequests( BEN ), std::vector<GString>{ ANN } );
}
TEST_F( GContactServiceTest, OneUserHasALimitOfWaitingRequests )
{
    config.contactRequests = 3;
    enter( BEN_HOST, BEN_W, u"dev2" );
    for( int i = 0; i < 5; ++i )
    {
        const GString user = "u" + std::to_string( i ) + "@velmora.local";
        const GString device = "d" + std::to_string( i );
        const GString address = "203.0.113." + std::to_string( i + 1 );
        store.addAccount( { user, "hash", "", now } );
        store.addLogon( user, address, now );
        store.addDevice( device, now );
        enter( address + ":1", GUTF8ToWide( user ), GUTF8ToWide( device ) );
        const Datagrams out = add( address + ":1", GUTF8ToWide( user ), BEN_W );
        EXPECT_EQ( codeOf( out ), 200 ) << "the asking side can't tell";
        EXPECT_EQ( out.size( ), i < 3 ? 2u : 1u );
    }
    EXPECT_EQ( store.listRequests( BEN ).size( ), 3u );
}
TEST_F( GContactServiceTest, OnePairCantAskAllDayLong )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    int heard = 0;
    for( int i = 0; i < 20; ++i )
    {
        const Datagrams out = add( ANN_HOST, ANN_W, BEN_W );
        EXPECT_EQ( codeOf( out ), 200 );
        heard += out.size( ) == 2;
        answer( u"refuse" );
    }
    EXPECT_EQ( heard, 5 );
}
TEST_F( GContactServiceTest, ADeviceThatLeavesIsToldNothingMore )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    enter( BEN_HOST, BEN_W, u"dev2" );
    add( ANN_HOST, ANN_W, BEN_W );
    send( BEN_HOST, request( u"UNREGISTER", 98, { { u"From", BEN_W }, { u"Device-GUID", u"dev2" } } ) );
    EXPECT_TRUE( after( 20 ).empty( ) );
    EXPECT_TRUE( service->isIdle( ) );
}
TEST_F( GContactServiceTest, ARemovedAccountLeavesNoRequest )
{
    enter( ANN_HOST, ANN_W, u"dev1" );
    add( ANN_HOST, ANN_W, BEN_W );
    store.addBuddy( BEN, ANN );
    store.removeAccount( ANN );
    EXPECT_TRUE( store.listRequests( BEN ).empty( ) );
    EXPECT_FALSE( store.hasBuddy( BEN, ANN ) ) << "whoever takes the name later is somebody else";
}
