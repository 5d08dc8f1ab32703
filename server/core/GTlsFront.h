// TLS before a listener of plain streams, on the same port: a connection that begins with a TLS record is unwrapped here and reaches
// the listener through a pair of local sockets; any other goes there as it is, or is refused. Without a certificate nothing is looked
// at. Connections that have not shown which they are, or are shaking hands, are limited in number and in time. Network thread only.
#pragma once

#include "server/core/GMetrics.h"
#include "server/core/GStreamServer.h"

#include <boost/asio/ssl/context.hpp>

class GTlsFront
{
public:
    using Context = std::shared_ptr<boost::asio::ssl::context>;

    // A context of a certificate chain and its key, both PEM; null with the reason.
    static Context load( const GString& certificate, const GString& key, GString& error );

    // `role` names the figures. Stands before `server` from now on.
    GTlsFront( GStreamServer& server, GMetrics& metrics, std::string_view role );
    // For connections that come from now on: null takes all as they are. `required` refuses those without TLS.
    void setContext( Context context, bool required );
    // No connection is inside.
    bool isIdle( ) const { return !_tunnels; }

private:
    class Tunnel;
    void _take( boost::asio::ip::tcp::socket socket );
    void _onBegun( const GString& address );
    void _count( std::string_view result ) { _metrics.count( _role, "TLS", result ); }

    GStreamServer& _server;
    GMetrics& _metrics;
    std::string_view _role;
    Context _context;
    bool _required = false;
    int64_t _tunnels = 0;
    int64_t _beginning = 0; // Neither refused nor handed on yet, in all and by address.
    std::map<GString, int64_t> _beginningOf;
};
