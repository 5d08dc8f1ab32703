// A whole engine, and what its commands left on the queues of the services.
#pragma once

#include "TemplateTest.h"
#include "client/skin/nodes/GButtonNode.h"
#include "client/skin/nodes/GEditNode.h"
#include "client/skin/nodes/GListNode.h"
#include "client/skin/nodes/GTableNode.h"
#include "client/skin/nodes/GWindowNode.h"

class CommandsTest : public TemplateTest
{
protected:
    // The first line and all headers of the oldest message of a queue, and its content.
    std::string next( GWStringView queue )
    {
        const GHTTPHeaders message = take( queue );
        std::string out = text( message.getMethod( ) );
        for( const auto& [name, header] : message.headers( ) )
            if( !name.empty( ) && name != u"Content-Length" ) out += " " + text( name ) + "=" + text( header );
        if( message.hasContent( ) ) out += " <" + message.getContent( 0 ) + ">";
        return out;
    }
    // The message inside the oldest broadcast to a buddy.
    std::string nextBroadcast( GWStringView buddy )
    {
        const GHTTPHeaders wrapper = take( GConcat( buddy, u"_commandQueue" ) );
        if( !wrapper.isMethod( u"DEVICEBROADCAST" ) || !wrapper.hasContent( ) ) return "";
        instance.enqueue( u"unwrapped", wrapper.getContent( 0 ) );
        return next( u"unwrapped" );
    }
    std::string client( ) { return next( u"GClient_commandQueue" ); }
    std::string sip( ) { return next( u"GSIPService_commandQueue" ); }
    std::string screen( ) { return next( u"GScreenService_commandQueue" ); }
    std::string capture( ) { return next( u"GVideoCaptureService_commandQueue" ); }
    std::string files( ) { return next( u"GFileService_commandQueue" ); }
    void hear( ) { instance.set( u"Audio_Capture_Online", 1 ); }
    void update( ) { engine->onNotification( 2, clock.now( ) ); }
    GWindowNode* windowNode( GWStringView path ) { return dynamic_cast<GWindowNode*>( node( path ) ); }
};
