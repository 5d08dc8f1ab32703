#include "client/app/GClientServices.h"

#include "base/GUtil.h"

#include <gtest/gtest.h>

#include <algorithm>

// Each service stands once, and those that are there stand in the order in which they start and stop.
TEST( GClientServices, KeepTheirOrderAndTheirNames )
{
    const GStringVector order = { u"GClient.GSIPService",           u"GClient.GVideoCaptureService",
                                  u"GClient.GVideoPlaybackService", u"GClient.GLogfileService",
                                  u"GClient.GUpgradeService",       u"GClient.GDispatchService",
                                  u"GClient.GFileService",          u"GClient.GScreenService" };
    auto at = order.begin( );
    for( const GServiceRow& row : GClientServicesGet( ) )
    {
        at = std::find( at, order.end( ), row.threadName );
        ASSERT_NE( at, order.end( ) ) << GWideToUTF8( row.threadName );
        ++at;
    }
    for( const size_t each : { 0, 1, 2, 5 } )
        EXPECT_EQ( std::ranges::count( GClientServicesGet( ), order[each], &GServiceRow::threadName ), 1 ) << each;
}
