// A UPnP gateway as far as port mappings need it. Everything it says is foreign: bounded in size and time, and never trusted as text.
#pragma once

#include "GUPnPHttp.h"

class GUPnPGateway
{
public:
    // Searches the network of that local address; false when no gateway answers. One with a public address that is connected is
    // taken at once, another only after the search, which blocks for 2.5 s, or ten when gateways are slow to answer.
    bool find( const GString& localIP );
    // Towards the internet: connected, with an address that the internet knows.
    bool isPublic( ) const { return _isPublic; }
    const GString& getExternalIP( ) const { return _externalIP; }

    // Each gives 0 on success, the gateway's own error, or NO_ANSWER.
    static constexpr int NO_ANSWER = -1;
    int addMapping( int externalPort, const GString& localIP, int localPort, const GString& description );
    int removeMapping( int externalPort );

private:
    bool _describe( const GString& url, bool local );
    bool _take( const GString& controlURL, const GString& service, bool local );
    int _command( const GString& action, const GString& arguments, GString& answer ) const;

    GUPnPAddress _control;
    GString _service;
    GString _externalIP;
    bool _isPublic = false;
};

// The text of the first element of that name; nothing when there is none.
std::string_view GUPnPElement( std::string_view xml, std::string_view name );
