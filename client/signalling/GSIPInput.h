// One input of a signalling state machine: a received request, a response with the stored request that it answers, a command or
// an event. It refers to messages of its caller and lives only for the call.
#pragma once

#include "runtime/GHTTPHeaders.h"

struct GSIPInput
{
    GWString localHost;
    GWString remoteHost;
    const GHTTPHeaders& request;
    const GHTTPHeaders& originalRequest;
    const GHTTPHeaders& response;
    const GHTTPHeaders& command;
    int event = 0;

    static GSIPInput ofEvent( int event ) { return { { }, { }, none( ), none( ), none( ), none( ), event }; }
    static GSIPInput ofCommand( const GHTTPHeaders& command )
    {
        return { { }, { }, none( ), none( ), none( ), command, 0 };
    }
    static GSIPInput ofRequest( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request )
    {
        return { localHost, remoteHost, request, none( ), none( ), none( ), 0 };
    }
    static GSIPInput ofResponse( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request,
                                 const GHTTPHeaders& response )
    {
        return { localHost, remoteHost, none( ), request, response, none( ), 0 };
    }

    bool is( int eventID ) const { return event == eventID; }
    bool isRequest( ) const { return &request != &none( ); }
    bool isResponse( ) const { return &response != &none( ); }
    bool isCommand( ) const { return &command != &none( ); }
    bool isRequest( GWStringView method ) const { return isRequest( ) && request.isMethod( method ); }
    bool isResponseTo( GWStringView method ) const { return isResponse( ) && originalRequest.isMethod( method ); }
    bool isCommand( GWStringView method ) const { return isCommand( ) && command.isMethod( method ); }

    static const GHTTPHeaders& none( )
    {
        static const GHTTPHeaders empty;
        return empty;
    }
};
