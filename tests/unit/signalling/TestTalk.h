// Two clients' whole signalling and a server of a few lines, over loopback in virtual time.
#pragma once

#include "base/GRandom.h"
#include "support/TestClock.h"
#include "support/TestLog.h"
#include "unit/signalling/TestClient.h"

#include <gtest/gtest.h>

class TestTalk : public testing::Test
{
protected:
    static constexpr int64_t SECOND = 1000000;
    const GWString ANN = u"ann@test";
    const GWString BOB = u"bob@test";

    TestTalk( )
    {
        GRandomSeed( 7 );
        server.devices = { ann.registration( ), bob.registration( ) };
        // Copies of an ACK along other routes, and its repetitions, reach a session that is connected already.
        TestLog::allow( "WARNING Request 'ACK' from" );
    }
    virtual void step( )
    {
        server.answer( );
        ann.pass( );
        server.answer( );
        bob.pass( );
        clock.advance( SECOND / 10 );
    }
    // Runs until the test holds or the time is over.
    template <typename Test>
    bool runUntil( Test test, int64_t limit = 60 * SECOND )
    {
        for( int64_t passed = 0; passed < limit && !test( ); passed += SECOND / 10 ) step( );
        return test( );
    }
    void run( int64_t time )
    {
        runUntil( [] { return false; }, time );
    }
    void goOnline( )
    {
        ann.command( u"BUDDYLOGON" );
        bob.command( u"BUDDYLOGON" );
        ASSERT_TRUE( runUntil( [this] { return ann.service->getState( ) == 2 && bob.service->getState( ) == 2; } ) );
    }
    bool areConnected( ) const { return ann.stateOf( BOB, u"D2" ) == 5 && bob.stateOf( ANN, u"D1" ) == 5; }
    void connect( )
    {
        goOnline( );
        ann.command( u"ADDBUDDY", BOB );
        ASSERT_TRUE( runUntil( [this] { return areConnected( ); } ) );
    }
    void beRobust( )
    {
        ann.instance.set( u"Robust_Signalling", 1 );
        bob.instance.set( u"Robust_Signalling", 1 );
    }
    TestClock clock;
    TestServer server;
    TestClient ann{ ANN, u"D1", server.host( ) };
    TestClient bob{ BOB, u"D2", server.host( ) };
};
