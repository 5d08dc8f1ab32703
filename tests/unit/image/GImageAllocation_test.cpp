// What runs for every picture takes nothing from the heap once its buffers have their size.
#include "image/GImage.h"

#include "support/CountAllocations.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

namespace
{
constexpr int EDGE = 96;

// Allocations of the second run: the first one sizes what the thread keeps.
template <typename Work>
long steadyAllocations( Work work )
{
    work( );
    return countAllocations( work );
}

GString picture( int type )
{
    GString out( static_cast<size_t>( GImageSize( { type, EDGE, EDGE } ) ), 0 );
    for( size_t i = 0; i < out.size( ); i++ ) out[i] = static_cast<char>( i * 7 );
    return out;
}
} // namespace

TEST( GImageAllocation, CopyAndCompositionTakeNothing )
{
    for( const int type : { GIT_RGB24, GIT_RGBA32, GIT_BGR24, GIT_BGRA32, GIT_RGB565 } )
    {
        const GString source = picture( type );
        GString target = picture( type );
        const GImageFormat format{ type, EDGE, EDGE };
        for( const int flags : { 0, +GIC_CENTER, GIC_TILE_X | GIC_TILE_Y, +GIC_OPAQUE, +GIC_PREMULTIPLIED } )
            EXPECT_EQ( countAllocations(
                           [&] {
                               GImageCopy( format, source.data( ), { 0, 0, 50, 40 }, format, target.data( ),
                                           { 1, 1, EDGE, EDGE }, flags );
                           } ),
                       0 )
                << type << " " << flags;
    }
}

TEST( GImageAllocation, CopyToAnotherLayoutAndStretchingTakeNothingTwice )
{
    const GString source = picture( GIT_BGRA32 );
    GString target = picture( GIT_RGBA32 );
    const GRect whole{ 0, 0, EDGE, EDGE }, small{ 0, 0, 30, 20 };
    for( const int flags : { 0, GIC_STRETCH_X | GIC_STRETCH_Y, +GIC_ASPECT } )
        for( const auto& [from, to] : { std::pair( whole, small ), std::pair( small, whole ) } )
            EXPECT_EQ( steadyAllocations(
                           [&, fromRect = from, toRect = to]
                           {
                               GImageCopy( { GIT_BGRA32, EDGE, EDGE }, source.data( ), fromRect,
                                           { GIT_RGBA32, EDGE, EDGE }, target.data( ), toRect, flags );
                           } ),
                       0 )
                << flags;
}

TEST( GImageAllocation, InPlaceConversionTakesNothing )
{
    for( const auto& [from, to] : { std::pair( GIT_RGB24, GIT_BGR24 ), std::pair( GIT_BGRA32, GIT_RGBA32 ) } )
    {
        GString image = picture( from );
        GImageFormat format{ from, EDGE, EDGE };
        EXPECT_EQ( countAllocations( [&, target = to] { GImageConvert( format, image.data( ), target ); } ), 0 );
    }
}

TEST( GImageAllocation, ConversionsReuseTheirOutput )
{
    const std::pair<int, int> pairs[] = { { 15, 16 }, { 16, 15 }, { 20, 19 }, { 17, 19 }, { 21, 15 }, { 15, 23 },
                                          { 23, 16 }, { 20, 17 }, { 18, 24 }, { 19, 24 }, { 20, 24 } };
    for( const auto& [from, to] : pairs )
    {
        const GString image = picture( from );
        GString out;
        EXPECT_EQ( steadyAllocations(
                       [&, type = from, target = to] {
                           GImageConvert( { type, EDGE, EDGE }, image.data( ), target, out );
                       } ),
                   0 )
            << from << " " << to;
    }
}

TEST( GImageAllocation, TheRoadOfACameraPictureReusesItsBuffers )
{
    for( const int type : { GIT_RGB24, GIT_BGRA32, GIT_YUY2 } )
    {
        const GString image = picture( type );
        GString planes, small, back;
        GImageFormat format{ GIT_RGB24, 0, 0 };
        EXPECT_EQ( steadyAllocations(
                       [&, type = type]
                       {
                           GImageConvertToIYUY( { type, EDGE, EDGE }, image.data( ), planes );
                           GImageResizeIYUY( { GIT_IYUY, EDGE, EDGE }, planes.data( ), { GIT_IYUY, 48, 48 }, small );
                           GImageConvertFromIYUY( { GIT_IYUY, 48, 48 }, small.data( ), format, back );
                       } ),
                   0 )
            << type;
    }
}
