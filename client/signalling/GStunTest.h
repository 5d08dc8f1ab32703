// The three-way test that tells how the client stands to the internet: one question to the direct host, answered by it and by two
// hosts that it names, one towards which a hole was punched and one that was never contacted. A plain value; no thread, no clock.
#pragma once

#include "runtime/GHTTPHeaders.h"

#include <array>

class GStunTest
{
public:
    // The first four entries: direct, indirect punched, indirect unpunched and NAT refresh host. Warns when there are fewer; the
    // missing ones stay empty.
    void setHosts( const GStringList& stunHostList );
    void clear( );
    void clearResponses( );

    const GWString& getDirectHost( ) const { return _stunHostArray[0]; }
    const GWString& getPunchedHost( ) const { return _stunHostArray[1]; }
    const GWString& getUnpunchedHost( ) const { return _stunHostArray[2]; }
    const GWString& getRefreshHost( ) const { return _stunHostArray[3]; }

    // Keeps the response in its sender's slot. False, with a warning, when the sender is none of the three, or when the direct host
    // tells an address that is none.
    bool store( const GWString& fromHost, const GHTTPHeaders& response );
    bool isComplete( ) const; // All three slots hold code 200.
    bool hasDirect( ) const;
    bool hasAnyIndirect( ) const;
    // The address as the direct host saw it; empty before it has answered.
    GWString getGlobalHost( ) const;
    // "PUBLIC", "UNRESTRICTED", "RESTRICTED" or "SYMMETRIC", or "FIREWALL" without an answer of the direct host.
    GWString classify( const GWString& localHost ) const;

private:
    std::array<GWString, 4> _stunHostArray;
    GHTTPHeaders _directSTUNResponse;
    GHTTPHeaders _indirectPunchedSTUNResponse;
    GHTTPHeaders _indirectUnpunchedSTUNResponse;
};
