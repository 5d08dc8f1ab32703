// The whole server: opens the roles that the settings name, runs them on one network thread, reloads, drains.
#pragma once

#include "server/core/GMetrics.h"
#include "server/core/GTlsFront.h"
#include "server/log/GLogRole.h"
#include "server/logon/GLogonRole.h"
#include "server/relay/GRelayRole.h"
#include "server/signalling/GSignallingRole.h"
#include "server/stun/GStunRole.h"
#include "server/upgrade/GUpgradeRole.h"

class GServer
{
public:
    // `config` is finished; `configPath` is read again by reload, empty when there is no file.
    GServer( const GServerConfig& config, const GString& configPath );
    ~GServer( );
    // Opens the store and binds all sockets; false with the reason.
    bool open( GString& error );
    // "ready logon=ip:port stun=...": the hosts as clients reach them.
    GString readyLine( ) const;
    // Blocks until stop() or the end of a drain.
    void run( );
    // From any thread or from the signal watcher.
    void stop( );
    void reload( );
    void drain( );
    // SIGHUP reloads, SIGTERM and SIGINT drain.
    void watchSignals( );

    boost::asio::io_context& io( ) { return _io; }
    GServerStore& store( ) { return _store; }
    GMetrics& metrics( ) { return _metrics; }
    const GServerHosts& hosts( ) const { return _hosts; }
    GString logonHost( ) const { return _logon ? _logon->host( ) : GString( ); }
    GString metricsHost( ) const { return _metricsServer ? _metricsServer->host( ) : GString( ); }

private:
    bool _openRoles( GString& error );
    bool _openMetrics( GString& error );
    bool _loadCertificate( GString& error );
    void _composeHosts( );
    void _start( );
    void _startMetrics( );
    void _awaitSignal( );
    void _pollDrain( );

    GServerConfig _config;
    GString _configPath;
    boost::asio::io_context _io;
    GServerStore _store;
    GMetrics _metrics;
    GServerHosts _hosts;
    std::unique_ptr<GStunRole> _stun;
    std::unique_ptr<GSignallingRole> _signalling;
    std::unique_ptr<GRelayRole> _relay;
    std::unique_ptr<GLogonRole> _logon;
    std::unique_ptr<GLogRole> _log;
    std::unique_ptr<GUpgradeRole> _upgrade;
    std::vector<std::unique_ptr<GTlsFront>> _fronts; // Of logon, log and upgrade, in this order.
    std::unique_ptr<GStreamServer> _metricsServer;
    struct Signals;
    std::unique_ptr<Signals> _signals;
    boost::asio::steady_timer _drainTimer;
    uint64_t _drainEnd = 0;
};
