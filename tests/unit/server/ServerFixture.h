// What the tests of the server share: a store in memory, a clock of their own, composed requests.
#pragma once

#include "protocol/GProtocol.h"
#include "runtime/GHTTPHeaders.h"
#include "server/core/GMetrics.h"
#include "server/core/GPassword.h"
#include "server/core/GServerConfig.h"
#include "server/core/GServerStore.h"

#include <gtest/gtest.h>

constexpr uint64_t SECOND = 1000000;
constexpr uint64_t START = 13000000000000000; // Some day of this century.

using HeaderList = std::vector<std::pair<GWString, GWString>>;

inline GHTTPHeaders request( GWStringView method, int cseq, const HeaderList& headers = { } )
{
    GHTTPHeaders message( method );
    if( cseq ) message.set( GProtocol::CSEQ, GConcat( cseq, u" (GDispatchService)" ) );
    for( const auto& [name, value] : headers ) message.set( name, value );
    return message;
}
inline GHTTPHeaders parsed( const GString& bytes )
{
    GHTTPHeaders message;
    EXPECT_EQ( message.deserialize( bytes ), static_cast<int>( bytes.size( ) ) ) << bytes;
    return message;
}

class ServerFixture : public testing::Test
{
protected:
    ServerFixture( )
    {
        GString error;
        EXPECT_TRUE( GPasswordInitialize( ) );
        EXPECT_TRUE( store.open( ":memory:", error ) ) << error;
        config.passwordMemoryKiB = 8;
        config.passwordPasses = 1;
        EXPECT_TRUE( config.finish( error ) ) << error;
    }
    GServerConfig config;
    GServerStore store;
    GMetrics metrics;
    uint64_t now = START;
};
