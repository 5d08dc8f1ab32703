// A whole client's signalling behind the shared port: blackboard, port and GSIPService, driven pass by pass in virtual time.
#pragma once

#include "client/signalling/GBuddySession.h"
#include "client/signalling/GDeviceSession.h"
#include "client/signalling/GSIPService.h"
#include "unit/signalling/TestPeer.h"

class TestClient : public TestPeer
{
public:
    using TestPeer::TestPeer;
    ~TestClient( )
    {
        service->_bGThreadObject_safe_onShutdown( );
        delete service;
    }
    void pass( )
    {
        receive( );
        service->pass( 0 );
    }
    void command( GWStringView method, const GWString& buddy = { } )
    {
        GHTTPHeaders message( method );
        if( !buddy.empty( ) ) message.set( u"Buddy-GUID", buddy );
        instance.enqueue( u"GSIPService_commandQueue", message );
    }
    GDeviceSession* device( const GWString& buddy, const GWString& deviceGUID ) const
    {
        const GBuddySession* session = service->findBuddy( buddy );
        return session ? session->findDevice( deviceGUID ) : nullptr;
    }
    // The state of a device's session, or -1 without one.
    int stateOf( const GWString& buddy, const GWString& deviceGUID ) const
    {
        const GDeviceSession* session = device( buddy, deviceGUID );
        return session ? session->getState( ) : -1;
    }
    TestServer::Device registration( )
    {
        return { instance.get( u"Local_User_GUID" ),
                 instance.get( u"Local_Device_GUID" ),
                 host( ),
                 { GConcat( u"local://", host( ) ) } };
    }
    GSIPService* service = make( );

private:
    GSIPService* make( ) { return GSAFENEW( GSIPService, ( &instance, &port ) ); }
};
