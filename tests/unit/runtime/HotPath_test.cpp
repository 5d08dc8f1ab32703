#include "runtime/GInstance.h"
#include "support/CountAllocations.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

TEST( GInstanceHotPath, ReadsAllocateNothing )
{
    const GWString path = GUTF8ToWide( ( std::filesystem::temp_directory_path( ) / "velmora_hot_path.ini" ).string( ) );
    std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( path ) ) );
    instance->set( u"Some_Rather_Long_Name_Of_A_Value", u"a value that is longer than any string holds in place" );
    instance->set( u"Robust_Media", 1 );
    GWString wide;
    GString narrow;
    long sum = 0;
    const auto work = [&]( )
    {
        for( int i = 0; i < 100; ++i )
        {
            instance->get( u"Some_Rather_Long_Name_Of_A_Value", wide );
            instance->get( u"Some_Rather_Long_Name_Of_A_Value", narrow );
            sum +=
                instance->isRobust( u"Robust_Media" ) + instance->calc( u"Robust_Media" ) + instance->isSet( u"None" );
            sum += static_cast<long>( instance->getTimestamp( u"Robust_Media" ) & 1 );
        }
    };
    work( );
    EXPECT_EQ( countAllocations( work ), 0 );
    EXPECT_GT( sum, 0 );
    instance.reset( );
    std::filesystem::remove( GWideToUTF8( path ) );
}
TEST( GLogHotPath, ClosedCategoryComposesNothing )
{
    GLogSetFilter( "" );
    const auto work = []( )
    {
        for( int i = 0; i < 100; ++i ) GLOGIF( 'A', u"a long line that is never composed ", i );
    };
    EXPECT_EQ( countAllocations( work ), 0 );
}
