// Fifty people who talk to one at once: whole clients, each with its own port, over loopback in virtual time.
#include "base/GRandom.h"
#include "support/TestClock.h"
#include "support/TestLog.h"
#include "unit/signalling/TestClient.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>

namespace
{
constexpr int64_t SECOND = 1000000;
constexpr int BUDDIES = 50;
constexpr int LINES = 4;
const GWString ANN = u"ann@test";

class FiftyBuddies : public testing::Test
{
protected:
    FiftyBuddies( )
    {
        GRandomSeed( 7 );
        for( const char* text : { "ignored, no state change.", "responding BUSY", "unknown CSEQ", "Lost contact",
                                  "inviteResponse.isSet", "no destination", "to invalid member", "while not connected",
                                  "unidentified destination", "without a usable route", "from unexpected host" } )
            TestLog::allow( text );
        ann = std::make_unique<TestClient>( ANN, u"D0", server.host( ) );
        for( int i = 0; i < BUDDIES; ++i )
            buddies.push_back( std::make_unique<TestClient>( nameOf( i ), GConcat( u"D", i + 1 ), server.host( ) ) );
        server.devices.push_back( ann->registration( ) );
        for( const auto& buddy : buddies ) server.devices.push_back( buddy->registration( ) );
    }
    static GWString nameOf( int i ) { return GConcat( u"buddy", i, u"@test" ); }
    void beRobust( )
    {
        ann->instance.set( u"Robust_Signalling", 1 );
        for( const auto& buddy : buddies ) buddy->instance.set( u"Robust_Signalling", 1 );
    }
    void step( )
    {
        for( const auto& buddy : buddies )
        {
            buddy->pass( );
            // Her socket holds less than what all of them send at once.
            ann->receive( );
        }
        server.answer( );
        ann->pass( );
        server.answer( );
        clock.advance( SECOND / 10 );
    }
    template <typename Test>
    bool runUntil( Test test, int64_t limit )
    {
        for( int64_t passed = 0; passed < limit && !test( ); passed += SECOND / 10 ) step( );
        return test( );
    }
    int countConnected( ) const
    {
        int count = 0;
        for( int i = 0; i < BUDDIES; ++i )
            count += ann->stateOf( nameOf( i ), GConcat( u"D", i + 1 ) ) == GDeviceSession::CONNECTED &&
                     buddies[static_cast<size_t>( i )]->stateOf( ANN, u"D0" ) == GDeviceSession::CONNECTED;
        return count;
    }
    // She has them all in her list, and invites them all at once.
    bool connect( int64_t limit )
    {
        for( const auto& buddy : buddies ) buddy->command( u"BUDDYLOGON" );
        for( int i = 0; i < 3; ++i ) step( );
        for( int i = 0; i < BUDDIES; ++i ) server.buddyList.push_back( nameOf( i ) );
        ann->command( u"BUDDYLOGON" );
        return runUntil( [this] { return countConnected( ) == BUDDIES; }, limit );
    }
    static void say( TestClient& client, const GWString& to, const GWString& text )
    {
        GHTTPHeaders chat( u"CHAT" );
        chat.set( u"Text", text );
        GHTTPHeaders broadcast( u"DEVICEBROADCAST" );
        broadcast.addContent( chat.serialize( ) );
        client.instance.enqueue( GConcat( to, u"_commandQueue" ), broadcast );
    }
    // The lines that reached a client, each with its sender, as often as they came.
    static std::multiset<GWString> linesOf( TestClient& client )
    {
        std::multiset<GWString> out;
        for( const GHTTPHeaders& command : client.commands( u"GClient_commandQueue" ) )
        {
            GHTTPHeaders inner;
            if( command.isMethod( u"DEVICEBROADCAST" ) && inner.deserialize( command.getContent( 0 ) ) )
                out.insert( GConcat( command.get( u"From" ), u": ", inner.get( u"Text" ) ) );
        }
        return out;
    }
    // All talk at once, a line each round; the time that their transaction layers try for passes.
    void chat( )
    {
        linesOf( *ann );
        for( const auto& buddy : buddies ) linesOf( *buddy );
        for( int line = 0; line < LINES; ++line )
        {
            for( const auto& buddy : buddies ) say( *buddy, ANN, GConcat( u"line ", line ) );
            for( int i = 0; i < BUDDIES; ++i ) say( *ann, nameOf( i ), GConcat( u"line ", line ) );
            step( );
        }
        runUntil( [] { return false; }, 16 * SECOND );
    }

    TestClock clock;
    TestServer server;
    std::unique_ptr<TestClient> ann;
    std::vector<std::unique_ptr<TestClient>> buddies;
};
} // namespace

TEST_F( FiftyBuddies, WhoChatAtOnceLoseNoLineWithTheRemedy )
{
    beRobust( );
    ASSERT_TRUE( connect( 30 * SECOND ) ) << countConnected( );
    chat( );
    const auto lines = linesOf( *ann );
    EXPECT_EQ( size_t( BUDDIES * LINES ), lines.size( ) );
    for( int i = 0; i < BUDDIES; ++i )
        for( int line = 0; line < LINES; ++line )
            EXPECT_EQ( 1u, lines.count( GConcat( nameOf( i ), u": line ", line ) ) ) << i << " " << line;
    for( const auto& buddy : buddies ) EXPECT_EQ( size_t( LINES ), linesOf( *buddy ).size( ) );
    EXPECT_EQ( BUDDIES, countConnected( ) );
}

// Their numbers meet in her memory of answers, so that lines are taken for repetitions of others'.
TEST_F( FiftyBuddies, WhoChatAtOnceLoseLinesByTheLetter )
{
    connect( 120 * SECOND );
    const int connected = countConnected( );
    EXPECT_GE( connected, BUDDIES / 2 );
    chat( );
    const auto lines = linesOf( *ann );
    RecordProperty( "connected", connected );
    RecordProperty( "lines", static_cast<int>( lines.size( ) ) );
    EXPECT_GT( lines.size( ), 0u );
    EXPECT_LT( lines.size( ), static_cast<size_t>( connected * LINES ) );
}
