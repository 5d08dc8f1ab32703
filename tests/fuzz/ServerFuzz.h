// A server's settings, store and figures in memory, with two accounts that are buddies.
#pragma once

#include "Fuzz.h"
#include "server/core/GMetrics.h"
#include "server/core/GPassword.h"
#include "server/core/GServerConfig.h"
#include "server/core/GServerStore.h"

namespace Fuzz
{
inline constexpr uint64_t START = 13000000000000000;
inline constexpr char ANN_HOST[] = "198.51.100.1:4000";
inline constexpr char BEN_HOST[] = "198.51.100.2:4000";

struct Server
{
    Server( )
    {
        GString error;
        require( GPasswordInitialize( ) && store.open( ":memory:", error ) );
        config.passwordMemoryKiB = 8;
        config.passwordPasses = 1;
        require( config.finish( error ) );
        for( const char* user : { "ann@velmora.local", "ben@velmora.local" } )
            store.addAccount( { user, "hash", "", START } );
        store.addLogon( "ann@velmora.local", "198.51.100.1", START );
        store.addLogon( "ben@velmora.local", "198.51.100.2", START );
        store.addDevice( "dev1", START );
        store.addDevice( "dev2", START );
    }
    GServerConfig config;
    GServerStore store;
    GMetrics metrics;
};
} // namespace Fuzz
