// Routes "scheme://ip:port" and the other names that messages between devices carry: splitting, and the tests that a stranger's
// text must pass before anything is sent to it or shown. Pure functions, any thread.
#pragma once

#include "base/GUtil.h"

struct GRoute
{
    GWString scheme; // "local", "turn", "restricted", "unrestricted", "symmetric".
    GWString host;   // "ip:port".
};

// More routes than this from one peer are not looked at.
constexpr size_t GROUTE_MAX_COUNT = 8;

// Cuts at "://"; false when there is no separator or either side is empty. The host's form is not tested.
bool GRouteSplit( GWStringView route, GRoute& out );
GWString GRouteCompose( GWStringView scheme, GWStringView host );
// 1 to 32 letters, digits and "-".
bool GRouteIsScheme( GWStringView text );
// A dotted unicast address with a port; loopback only when `fromHost`, which named it, is on loopback itself.
bool GRouteIsUsableHost( const GWString& host, const GWString& fromHost );
// The routes of `routes` that may be tried: well-formed, usable, none of `ownHosts`, each once, at most GROUTE_MAX_COUNT. What
// is refused is logged.
GStringList GRouteListFilter( const GStringList& routes, const GWString& fromHost, const GStringList& ownHosts );
// Text of a peer for display: printable characters only, at most `maxLength` of them.
GWString GRouteCleanText( GWStringView text, size_t maxLength );
