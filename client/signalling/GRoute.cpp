#include "client/signalling/GRoute.h"

#include "platform/GNet.h"

#include <algorithm>

namespace
{
constexpr GWStringView SEPARATOR = u"://";
constexpr size_t MAX_SCHEME_LENGTH = 32;
constexpr size_t MAX_LOGGED_LENGTH = 64;

bool isLetterOrDigit( char16_t c )
{
    return GWITHIN( u'a', c, u'z' ) || GWITHIN( u'A', c, u'Z' ) || GWITHIN( u'0', c, u'9' ) || c == u'-';
}
bool isPrintable( char16_t c )
{
    return c >= u' ' && !GWITHIN( 0x7F, c, 0x9F );
}
} // namespace

bool GRouteSplit( GWStringView route, GRoute& out )
{
    const size_t at = route.find( SEPARATOR );
    if( at == GWStringView::npos ) return false;
    out.scheme = GWString( route.substr( 0, at ) );
    out.host = GWString( route.substr( at + SEPARATOR.size( ) ) );
    return !out.scheme.empty( ) && !out.host.empty( );
}

GWString GRouteCompose( GWStringView scheme, GWStringView host )
{
    return GConcat( scheme, SEPARATOR, host );
}

bool GRouteIsScheme( GWStringView text )
{
    return GWITHIN( 1u, text.size( ), MAX_SCHEME_LENGTH ) && std::all_of( text.begin( ), text.end( ), isLetterOrDigit );
}

bool GRouteIsUsableHost( const GWString& host, const GWString& fromHost )
{
    if( GNetIsLoopbackHost( host ) && !GNetIsLoopbackHost( fromHost ) ) return false;
    return GNetIsUnicastHost( host );
}

GStringList GRouteListFilter( const GStringList& routes, const GWString& fromHost, const GStringList& ownHosts )
{
    GStringList out;
    for( const GWString& text : routes )
    {
        if( out.size( ) == GROUTE_MAX_COUNT )
        {
            GLOG( u"WARNING Received more than ", GROUTE_MAX_COUNT, u" routes via (", fromHost, u"), ignoring." );
            break;
        }
        GRoute route;
        if( !GRouteSplit( text, route ) || !GRouteIsScheme( route.scheme ) ||
            !GRouteIsUsableHost( route.host, fromHost ) )
        {
            GLOG( u"WARNING Received invalid route '", GRouteCleanText( text, MAX_LOGGED_LENGTH ), u"' via (", fromHost,
                  u"), ignoring." );
            continue;
        }
        if( GListContains( ownHosts, route.host ) )
        {
            // Two homes may use the same private address: nobody's fault, and nobody's route.
            GLOGIF( 's', u"Route '", text, u"' leads to ourselves, ignoring." );
            continue;
        }
        if( !GListContains( out, text ) ) out.push_back( text );
    }
    return out;
}

GWString GRouteCleanText( GWStringView text, size_t maxLength )
{
    GWString out;
    std::copy_if( text.begin( ), text.end( ), std::back_inserter( out ), isPrintable );
    if( out.size( ) > maxLength ) out.resize( maxLength );
    return out;
}
