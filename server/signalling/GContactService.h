// Requests for a contact as a pure class: an ADDBUDDY that the other side has not returned waits in the store for an answer, and the
// devices of the asked user that understand it are told, again every 2 s until they say 200. Time is passed in, in microseconds;
// what to send is given out. A request is stored before its ADDBUDDY is acknowledged. Network thread only.
#pragma once

#include "runtime/GHTTPHeaders.h"
#include "server/core/GDatagramList.h"
#include "server/core/GMetrics.h"
#include "server/core/GRateLimit.h"
#include "server/core/GServerConfig.h"
#include "server/core/GServerStore.h"

#include <array>
#include <deque>
#include <map>

// A registered device that understands requests for a contact.
struct GContactDevice
{
    GString user;
    GString device;
    size_t listener;
    GString host;
};

class GContactService
{
public:
    using Devices = std::vector<GContactDevice>;

    GContactService( const GServerConfig& config, GServerStore& store, GMetrics& metrics );
    void reload( );

    // Whether an INVITE of `caller` reaches the devices of `to`.
    bool mayInvite( const GString& caller, const GString& to );
    // False when the user has asked for too many others of late; counts this one otherwise.
    bool mayAsk( const GString& user, uint64_t now );
    // Whether `asked` is to be told that `asker` wants him as a contact; if so it is stored. What keeps a request from being made
    // can't be told from outside.
    bool ask( const GString& asker, const GString& asked, uint64_t now );
    // `asked` has answered `asker`, by adding him or otherwise: the request is over. False when there was none.
    bool settle( const GString& asker, const GString& asked );
    bool block( const GString& user, const GString& blocked );
    void unblock( const GString& user, const GString& blocked );

    // Tells one device of one request, or that it is answered elsewhere.
    void tell( const GContactDevice& device, const GString& asker, GWStringView state, uint64_t now,
               GDatagramList& out );
    // All that wait for the user of a device that has registered.
    void tellAll( const GContactDevice& device, uint64_t now, GDatagramList& out );
    // A device's answer; false when it belongs to nothing that was told.
    bool onResponse( const GString& from, const GHTTPHeaders& response );
    // The device is gone.
    void forget( const GString& user, const GString& device );
    // Tells again what was not answered.
    void update( uint64_t now, GDatagramList& out );
    bool isIdle( ) const { return _told.empty( ); }
    size_t toldCount( ) const { return _told.size( ); }

private:
    struct Telling
    {
        GContactDevice device;
        GString asker;
        GString bytes;
        uint64_t number;
        int left; // How often it is still repeated.
    };
    using Key = std::array<GString, 3>; // User, device, asker: what was told last counts.

    void _drop( const std::map<Key, Telling>::iterator& telling );

    const GServerConfig& _config;
    GServerStore& _store;
    GMetrics& _metrics;
    GRateLimit _asking;
    GRateLimit _pairs;
    uint64_t _number;
    std::map<Key, Telling> _told;
    std::map<uint64_t, Key> _byNumber;
    std::deque<std::pair<uint64_t, uint64_t>> _due; // Time and number, in the order of time.
};
