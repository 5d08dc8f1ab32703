// The logon role as a pure class: tests a request, says what is to be hashed or verified, and composes the answer.
// The costly step between begin and end belongs to another thread; all else runs on the network thread. Times in microseconds.
#pragma once

#include "runtime/GHTTPHeaders.h"
#include "server/core/GMetrics.h"
#include "server/core/GPassword.h"
#include "server/core/GRateLimit.h"
#include "server/core/GServerConfig.h"
#include "server/core/GServerStore.h"

// Where clients find the other roles, as they reach them.
struct GServerHosts
{
    std::vector<GString> stun;
    std::vector<GString> signalling;
    GString relay;
    GString log;
    GString upgrade;
};

// What an accepted request asks of the hashing thread.
struct GLogonTask
{
    GString name; // "user@domain"
    GString address;
    GString password;
    GString email;
    GString hash; // The stored one; empty for an unknown account, and for a new one.
    GPasswordLimits limits;
    int64_t version = 0;
    bool create = false;
    GHTTPHeaders request;
    // The result.
    GString newHash;
    bool verified = false;
};

class GLogonService
{
public:
    GLogonService( const GServerConfig& config, const GServerHosts& hosts, GServerStore& store, GMetrics& metrics );
    // True with a task for run(); otherwise `reply` is the answer, or empty when there is none: the connection ends.
    bool begin( const GHTTPHeaders& request, const GString& address, uint64_t now, GLogonTask& task, GString& reply );
    // Hashes or verifies. Any thread; touches nothing but the task.
    static void run( GLogonTask& task );
    // The answer to a task that has run.
    GString end( const GLogonTask& task, uint64_t now );
    // The answer when there are too many tasks already.
    GString refuse( const GHTTPHeaders& request, const GString& address );
    void reload( );

    // 400's text, or empty when an account of this name (without a domain), password and e-mail may be.
    static GString testAccount( const GServerConfig& config, const GWString& name, const GWString& password,
                                const GWString& email );

private:
    GString _answer( const GHTTPHeaders& request, const GString& name, const GString& address, int code,
                     GWStringView text );
    GString _welcome( const GLogonTask& task );

    const GServerConfig& _config;
    const GServerHosts& _hosts;
    GServerStore& _store;
    GMetrics& _metrics;
    GRateLimit _addressLimit;
    GRateLimit _failureLimit;
};
