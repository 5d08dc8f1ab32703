#include "image/GImage.h"
#include "image/GImageCompare.h"

#include "support/CountAllocations.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

namespace
{
struct Image
{
    Image( int type, int width, int height, char fill = 0 )
        : format{ type, width, height }, pixels( static_cast<size_t>( GImageSize( format ) ), fill )
    {
    }
    char* pixel( int x, int y )
    {
        return pixels.data( ) + ( static_cast<ptrdiff_t>( y ) * format.width + x ) * GImageBytesPerPixel( format.type );
    }
    const char* pixel( int x, int y ) const { return const_cast<Image*>( this )->pixel( x, y ); }
    GRect whole( ) const { return { 0, 0, format.width, format.height }; }

    GImageFormat format;
    GString pixels;
};

constexpr GRect EMPTY{ 0x7FFFFFFF, 0x7FFFFFFF, -2147483647 - 1, -2147483647 - 1 };

bool compare( const Image& lhs, const GRect& lhsRect, const Image& rhs, const GRect& rhsRect, GRect& diff, int factor )
{
    return GImageCompare( lhs.format, lhs.pixels.data( ), lhsRect, rhs.format, rhs.pixels.data( ), rhsRect, diff,
                          factor );
}
GRect differenceOf( const Image& lhs, const Image& rhs, int factor = 1 )
{
    GRect diff;
    return compare( lhs, lhs.whole( ), rhs, rhs.whole( ), diff, factor ) ? diff : EMPTY;
}

// The four scans one sample at a time, as plainly as they can be written.
class Reference
{
public:
    Reference( const Image& lhs, const GRect& lhsRect, const Image& rhs, const GRect& rhsRect, int factor )
        : _lhs( lhs ), _rhs( rhs ), _lhsRect( lhsRect ), _rhsRect( rhsRect ), _f( factor )
    {
    }
    GRect diff( ) const
    {
        const int width = _lhsRect.width( ), height = _lhsRect.height( );
        GRect out = EMPTY;
        for( int y = 0; y < height && out.top == INT32_MAX; y += _f )
            if( _row( y, width ) ) out.top = y;
        if( out.top == INT32_MAX ) return out;
        out.bottom = out.top + 1;
        for( int y = height - _f; y > out.top; y -= _f )
            if( _row( y, width ) )
            {
                out.bottom = std::min( y + _f, height + 1 );
                break;
            }
        for( int x = 0; x < width && out.left == INT32_MAX; x += _f )
            if( _column( x, out ) ) out.left = x;
        out.right = out.left + 1;
        for( int x = width - _f; x > out.left; x -= _f )
            if( _column( x, out ) )
            {
                out.right = std::min( x + _f, width + 1 );
                break;
            }
        return out;
    }

private:
    bool _differ( int x, int y ) const
    {
        const char* left = _lhs.pixel( ( _lhsRect.left + x ) / _f * _f, ( _lhsRect.top + y ) / _f * _f );
        const char* right = _rhs.pixel( _rhsRect.left + x, _rhsRect.top + y );
        return !std::equal( left, left + GImageBytesPerPixel( _lhs.format.type ), right );
    }
    bool _row( int y, int width ) const
    {
        for( int x = 0; x < width; x += _f )
            if( _differ( x, y ) ) return true;
        return false;
    }
    bool _column( int x, const GRect& rows ) const
    {
        for( int y = rows.top; y < rows.bottom; y += _f )
            if( _differ( x, y ) ) return true;
        return false;
    }

    const Image& _lhs;
    const Image& _rhs;
    GRect _lhsRect;
    GRect _rhsRect;
    int _f;
};
} // namespace

TEST( GImageCompare, EqualImagesLeaveTheEmptyRectangle )
{
    const Image a( GIT_BGRA32, 33, 9, 5 ), b( GIT_BGRA32, 33, 9, 5 );
    GRect diff{ 1, 2, 3, 4 };
    EXPECT_FALSE( compare( a, a.whole( ), b, b.whole( ), diff, 1 ) );
    EXPECT_EQ( diff, EMPTY );
    diff = { 1, 2, 3, 4 };
    EXPECT_FALSE( compare( a, a.whole( ), b, b.whole( ), diff, 4 ) );
    EXPECT_EQ( diff, EMPTY );
}

TEST( GImageCompare, OnePixelIsItsOwnRectangle )
{
    for( const int type : { GIT_GRAY8, GIT_RGB565, GIT_RGB24, GIT_BGRA32 } )
        for( int y = 0; y < 5; y++ )
            for( int x = 0; x < 19; x++ )
                for( int byte = 0; byte < GImageBytesPerPixel( type ); byte++ )
                {
                    const Image a( type, 19, 5, 1 );
                    Image b = a;
                    b.pixel( x, y )[byte] = 2;
                    ASSERT_EQ( differenceOf( a, b ), ( GRect{ x, y, x + 1, y + 1 } ) ) << type;
                }
}

TEST( GImageCompare, TheLastRowEndsAtTheHeight )
{
    const Image a( GIT_RGB24, 8, 6 );
    Image b = a;
    b.pixel( 1, 2 )[0] = 1;
    b.pixel( 5, 5 )[0] = 1;
    EXPECT_EQ( differenceOf( a, b ), ( GRect{ 1, 2, 6, 6 } ) );
}

TEST( GImageCompare, OneByOneIsEqualOrWholly )
{
    const Image a( GIT_BGRA32, 1, 1 );
    Image b = a;
    EXPECT_EQ( differenceOf( a, b ), EMPTY );
    b.pixel( 0, 0 )[3] = 1;
    EXPECT_EQ( differenceOf( a, b ), ( GRect{ 0, 0, 1, 1 } ) );
    for( const int factor : { 2, 64, 1 << 30 } ) EXPECT_EQ( differenceOf( a, b, factor ), ( GRect{ 0, 0, 1, 1 } ) );
}

TEST( GImageCompare, TheBoxIsRelativeToTheRectangles )
{
    Image a( GIT_BGRA32, 20, 20, 7 ), b( GIT_BGRA32, 30, 10, 7 );
    b.pixel( 25, 6 )[1] = 0;
    b.pixel( 27, 7 )[1] = 0;
    b.pixel( 4, 7 )[1] = 0; // Outside.
    GRect diff;
    EXPECT_TRUE( compare( a, { 10, 3, 18, 11 }, b, { 22, 2, 30, 10 }, diff, 1 ) );
    EXPECT_EQ( diff, ( GRect{ 3, 4, 6, 6 } ) );
}

TEST( GImageCompare, WhatOnlySomeRowsShowStillCounts )
{
    const Image a( GIT_BGRA32, 40, 5 );
    Image b = a;
    b.pixel( 20, 1 )[0] = b.pixel( 2, 2 )[0] = b.pixel( 39, 3 )[0] = b.pixel( 21, 4 )[0] = 1;
    EXPECT_EQ( differenceOf( a, b ), ( GRect{ 2, 1, 40, 5 } ) );
}

TEST( GImageCompare, ADifferenceBehindManyPiecesOfMemoryIsFound )
{
    const Image a( GIT_BGRA32, 500, 400, 3 );
    Image b = a;
    b.pixel( 499, 399 )[2] = 0;
    EXPECT_EQ( differenceOf( a, b ), ( GRect{ 499, 399, 500, 400 } ) );
    b.pixel( 3, 70 )[2] = 0;
    EXPECT_EQ( differenceOf( a, b ), ( GRect{ 3, 70, 500, 400 } ) );
}

TEST( GImageCompare, TheLeftPictureIsSampledByItsRoundedPlaceOnly )
{
    // The left picture holds one sample for each square of two; the right one all pixels.
    Image lhs( GIT_GRAY8, 8, 8, 9 ), rhs( GIT_GRAY8, 8, 8, 1 );
    for( int y = 0; y < 8; y += 2 )
        for( int x = 0; x < 8; x += 2 ) *lhs.pixel( x, y ) = 1;
    EXPECT_EQ( differenceOf( lhs, rhs, 2 ), EMPTY );
    GRect diff;
    // At odd places the left sample is that of the square, the right one the pixel itself.
    EXPECT_FALSE( compare( lhs, { 1, 1, 7, 7 }, rhs, { 1, 1, 7, 7 }, diff, 2 ) );
    EXPECT_TRUE( compare( rhs, { 1, 1, 7, 7 }, lhs, { 1, 1, 7, 7 }, diff, 2 ) );
    EXPECT_EQ( diff, ( GRect{ 0, 0, 6, 6 } ) );
}

TEST( GImageCompare, CoarseBoxesFollowTheScansFromEachSide )
{
    const Image a( GIT_GRAY8, 7, 7 );
    Image b( GIT_GRAY8, 7, 7, 1 );
    // From below the samples stand at 5, 3, 1: the last ends at the height.
    EXPECT_EQ( differenceOf( a, b, 2 ), ( GRect{ 0, 0, 7, 7 } ) );
    b = a;
    *b.pixel( 6, 6 ) = 1;
    // Seen from above and the left at 6; no sample from below meets it.
    EXPECT_EQ( differenceOf( a, b, 2 ), ( GRect{ 6, 6, 7, 7 } ) );
    b = a;
    *b.pixel( 0, 4 ) = 1;
    EXPECT_EQ( differenceOf( a, b, 4 ), ( GRect{ 0, 4, 1, 5 } ) );
}

TEST( GImageCompare, EqualsThePlainScansOnRandomPictures )
{
    std::mt19937 random( 11 );
    const auto upTo = [&random]( int most )
    { return static_cast<int>( random( ) % static_cast<unsigned>( most + 1 ) ); };
    constexpr int TYPES[] = { GIT_GRAY8, GIT_RGB565, GIT_RGB24, GIT_BGRA32 };
    int different = 0;
    for( int round = 0; round < 20000; round++ )
    {
        Image lhs( TYPES[upTo( 3 )], 1 + upTo( 40 ), 1 + upTo( 20 ), 4 );
        Image rhs( lhs.format.type, 1 + upTo( 40 ), 1 + upTo( 20 ), 4 );
        for( int changes = upTo( 5 ); changes > 0; changes-- )
        {
            Image& changed = upTo( 1 ) ? lhs : rhs;
            changed.pixels[static_cast<size_t>( upTo( static_cast<int>( changed.pixels.size( ) ) - 1 ) )] = 5;
        }
        const int width = 1 + upTo( std::min( lhs.format.width, rhs.format.width ) - 1 );
        const int height = 1 + upTo( std::min( lhs.format.height, rhs.format.height ) - 1 );
        const int x = upTo( lhs.format.width - width ), y = upTo( lhs.format.height - height );
        const int u = upTo( rhs.format.width - width ), v = upTo( rhs.format.height - height );
        const GRect lhsRect{ x, y, x + width, y + height }, rhsRect{ u, v, u + width, v + height };
        const int factor = 1 << upTo( 4 );
        const GRect expected = Reference( lhs, lhsRect, rhs, rhsRect, factor ).diff( );
        GRect diff;
        ASSERT_EQ( compare( lhs, lhsRect, rhs, rhsRect, diff, factor ), expected != EMPTY ) << round;
        ASSERT_EQ( diff, expected ) << round << " factor " << factor;
        different += expected != EMPTY;
    }
    EXPECT_GT( different, 2000 );
}

TEST( GImageCompare, RectanglesWithoutAreaAreEqual )
{
    const Image a( GIT_RGB24, 4, 4, 1 ), b( GIT_RGB24, 4, 4, 2 );
    GRect diff;
    EXPECT_FALSE( compare( a, { 2, 0, 2, 4 }, b, { 0, 0, 0, 4 }, diff, 1 ) );
    EXPECT_FALSE( compare( a, { 0, 4, 4, 4 }, b, { 0, 0, 4, 0 }, diff, 2 ) );
    EXPECT_EQ( diff, EMPTY );
}

TEST( GImageCompare, AllocatesNothing )
{
    const Image a( GIT_BGRA32, 64, 64 );
    Image b = a;
    b.pixel( 9, 40 )[0] = 1;
    GRect diff;
    EXPECT_EQ( countAllocations(
                   [&]
                   {
                       for( const int factor : { 1, 2, 8 } ) compare( a, a.whole( ), b, b.whole( ), diff, factor );
                   } ),
               0 );
}

TEST( GImageCompare, MistakesOfTheCallerAbort )
{
    const Image a( GIT_RGB24, 4, 4 ), other( GIT_BGR24, 4, 4 );
    GRect diff;
    const GRect whole = a.whole( );
    const auto with = [&]( const GRect& lhsRect, const GRect& rhsRect, int factor = 1 )
    { compare( a, lhsRect, a, rhsRect, diff, factor ); };
    EXPECT_DEATH( compare( a, whole, other, whole, diff, 1 ), "lhsFormat.type == rhsFormat.type" );
    EXPECT_DEATH( GImageCompare( a.format, nullptr, whole, a.format, a.pixels.data( ), whole, diff ),
                  "\\(lhsBuffer\\)" );
    EXPECT_DEATH( GImageCompare( a.format, a.pixels.data( ), whole, a.format, nullptr, whole, diff ),
                  "\\(rhsBuffer\\)" );
    EXPECT_DEATH( with( { 1, 0, 0, 4 }, whole ), "GVALIDRECT\\( lhsRect \\)" );
    EXPECT_DEATH( with( whole, { 0, 3, 4, 2 } ), "GVALIDRECT\\( rhsRect \\)" );
    EXPECT_DEATH( with( { 0, 0, 3, 4 }, whole ),
                  "\\(lhsRect.right-lhsRect.left\\) == \\(rhsRect.right-rhsRect.left\\)" );
    EXPECT_DEATH( with( whole, { 0, 0, 4, 3 } ),
                  "\\(lhsRect.bottom-lhsRect.top\\) == \\(rhsRect.bottom-rhsRect.top\\)" );
    EXPECT_DEATH( with( { 1, 0, 5, 4 }, whole ), "0 <= lhsRect.left && lhsRect.right <= lhsFormat.width" );
    EXPECT_DEATH( with( whole, { -1, 0, 3, 4 } ), "0 <= rhsRect.left && rhsRect.right <= rhsFormat.width" );
    EXPECT_DEATH( with( { 0, 1, 4, 5 }, whole ), "0 <= lhsRect.top && lhsRect.bottom <= lhsFormat.height" );
    EXPECT_DEATH( with( whole, { 0, -1, 4, 3 } ), "0 <= rhsRect.top && rhsRect.bottom <= rhsFormat.height" );
    for( const int factor : { 0, 3, -1, -2147483647 - 1 } )
        EXPECT_DEATH( with( whole, whole, factor ), "\\(1 << shift\\) == downsampleFactor" );
    const Image packed( GIT_GRAY4, 4, 4 );
    EXPECT_DEATH( compare( packed, { 0, 0, 4, 4 }, packed, { 0, 0, 4, 4 }, diff, 1 ), "GImageBytesPerPixel" );
}
