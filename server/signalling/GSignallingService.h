// The signalling role as a pure class: who is registered where, whose buddy is whom, and the way of an INVITE to a user's devices.
// Time is passed in, in microseconds; what to send is given out as (listener, target, bytes). Registrations and lists are stored
// before they are acknowledged. A PING takes nothing from the heap. Network thread only.
#pragma once

#include "runtime/GHTTPHeaders.h"
#include "server/core/GMetrics.h"
#include "server/core/GReplyCache.h"
#include "server/core/GServerConfig.h"
#include "server/core/GServerStore.h"
#include "server/signalling/GContactService.h"

#include <map>

class GSignallingService
{
public:
    GSignallingService( const GServerConfig& config, GServerStore& store, GMetrics& metrics );
    // The hosts that listen, as bound; registrations of an earlier run are found again by them.
    void setListeners( const std::vector<GString>& hosts ) { _listeners = hosts; }
    // Takes over the live registrations of the store.
    void load( uint64_t now );
    void onDatagram( size_t listener, const GString& from, std::string_view bytes, uint64_t now, GDatagramList& out );
    // Repeats what devices have not answered. Every second is enough; nothing to do while isIdle.
    void update( uint64_t now, GDatagramList& out ) { _contacts.update( now, out ); }
    bool isIdle( ) const { return _contacts.isIdle( ); }
    void reload( ) { _contacts.reload( ); }
    // Ends registrations whose time is over or whose account is gone. Once a minute is enough: no answer uses one that is over.
    void expire( uint64_t now );
    size_t registrationCount( ) const;

private:
    // One datagram on its way through: handlers answer by `reply`, or not at all.
    struct Request
    {
        size_t listener;
        const GString& from;
        std::string_view bytes;
        uint64_t now;
        const GHTTPHeaders& headers;
        GDatagramList& out;
    };
    using Handler = std::string_view ( GSignallingService::* )( Request& request );
    struct Row;
    static const Row ROWS[];
    using DeviceMap = std::map<GString, GRegistration>;

    std::string_view _onPING( Request& request );
    std::string_view _onDEVICEGUID( Request& request );
    std::string_view _onREGISTER( Request& request );
    bool _renewLogon( const GString& user, const GString& address, uint64_t now );
    std::string_view _onUNREGISTER( Request& request );
    std::string_view _onGETBUDDYLIST( Request& request );
    std::string_view _onSETBUDDYLIST( Request& request );
    std::string_view _onADDBUDDY( Request& request );
    std::string_view _onCONTACTANSWER( Request& request );
    std::string_view _onBUGREPORT( Request& request );
    std::string_view _onINVITE( Request& request );

    void _onResponse( Request& request );
    bool _repeats( Request& request, GString& key );
    std::string_view _answerOnce( Request& request, const GString& key, int code, GWStringView text );
    void _ask( Request& request, const GString& asker, const GString& asked );
    void _settle( Request& request, const GString& asker, const GRegistration& answering );
    GContactService::Devices _devicesOf( const GString& user, uint64_t now ) const;
    std::string_view _send( Request& request, const GHTTPHeaders& answer, std::string_view result );
    std::string_view _answer( Request& request, int code, GWStringView text );
    void _forwardINVITE( Request& request, const GString& to, const GString& callerDevice, GHTTPHeaders& answer );
    bool _store( const GRegistration& registration );
    void _remove( const GString& user, const GString& device );
    void _removeOthersAt( const GString& host, const GString& user, const GString& device );
    void _limitDevices( const GString& user, const GString& keep );
    GRegistration* _registrationOf( const Request& request );
    GString _addressOf( const GString& host );
    GString _routesOf( const Request& request, const GString& address ) const;
    size_t _listenerOf( const GRegistration& registration ) const;

    const GServerConfig& _config;
    GServerStore& _database;
    GMetrics& _metrics;
    std::vector<GString> _listeners;
    std::map<GString, DeviceMap> _registrations;
    std::map<GString, std::pair<GString, GString>> _byHost; // Source to user and device.
    GHTTPHeaders _message;                                  // The one in hand; keeps its room.
    GReplyCache _replies;
    GReplyCache _invites;
    GContactService _contacts;
};
