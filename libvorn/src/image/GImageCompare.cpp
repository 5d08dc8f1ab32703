#include "image/GImageCompare.h"
#include "GImageRows.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>

namespace
{
// Rows that follow each other without a gap are compared in pieces of this many bytes: long enough for the library's pace, short
// enough that a difference costs no second pass over a whole screen.
constexpr size_t PIECE = 64 << 10;

// The two rectangles, by their first pixels.
struct Blocks
{
    const char* lhs;
    const char* rhs;
    size_t lhsStride;
    size_t rhsStride;
    int width;
    int height;
    int bytes; // Of a pixel.

    const char* lhsRow( int y ) const { return lhs + static_cast<size_t>( y ) * lhsStride; }
    const char* rhsRow( int y ) const { return rhs + static_cast<size_t>( y ) * rhsStride; }
    size_t rowBytes( ) const { return static_cast<size_t>( width ) * static_cast<size_t>( bytes ); }
};

uint64_t wordAt( const char* place )
{
    uint64_t word;
    std::memcpy( &word, place, sizeof( word ) );
    return word;
}

// The number of equal bytes in front of the first difference; `length` when there is none.
size_t equalInFront( const char* a, const char* b, size_t length )
{
    size_t at = 0;
    while( at + 8 <= length && wordAt( a + at ) == wordAt( b + at ) ) at += 8;
    while( at < length && a[at] == b[at] ) at++;
    return at;
}

// The number of bytes up to and with the last difference; 0 when there is none.
size_t lastDifferent( const char* a, const char* b, size_t length )
{
    while( length >= 8 && wordAt( a + length - 8 ) == wordAt( b + length - 8 ) ) length -= 8;
    while( length > 0 && a[length - 1] == b[length - 1] ) length--;
    return length;
}

// ---- Every pixel: the scans run along the rows, each only over what those before left open.

int firstDifferentRow( const Blocks& blocks )
{
    const size_t row = blocks.rowBytes( );
    const bool seamless = row == blocks.lhsStride && row == blocks.rhsStride;
    const int step = seamless && row ? static_cast<int>( std::max<size_t>( PIECE / row, 1 ) ) : 1;
    for( int y = 0; y < blocks.height; y += step )
    {
        const int rows = std::min( step, blocks.height - y );
        const size_t length = row * static_cast<size_t>( rows );
        if( std::memcmp( blocks.lhsRow( y ), blocks.rhsRow( y ), length ) == 0 ) continue;
        if( rows == 1 ) return y;
        return y + static_cast<int>( equalInFront( blocks.lhsRow( y ), blocks.rhsRow( y ), length ) / row );
    }
    return INT_MAX;
}

int endOfDifferentRows( const Blocks& blocks, int top )
{
    for( int y = blocks.height - 1; y > top; y-- )
        if( std::memcmp( blocks.lhsRow( y ), blocks.rhsRow( y ), blocks.rowBytes( ) ) != 0 ) return y + 1;
    return top + 1;
}

int firstDifferentColumn( const Blocks& blocks, int top, int bottom )
{
    size_t open = blocks.rowBytes( );
    for( int y = top; y < bottom && open > 0; y++ )
        if( std::memcmp( blocks.lhsRow( y ), blocks.rhsRow( y ), open ) != 0 )
            open = equalInFront( blocks.lhsRow( y ), blocks.rhsRow( y ), open );
    return open == blocks.rowBytes( ) ? INT_MAX : static_cast<int>( open / static_cast<size_t>( blocks.bytes ) );
}

int endOfDifferentColumns( const Blocks& blocks, int top, int bottom, int left )
{
    // The last byte known to be different; behind it all is open.
    size_t end = static_cast<size_t>( left + 1 ) * static_cast<size_t>( blocks.bytes );
    const size_t row = blocks.rowBytes( );
    for( int y = top; y < bottom && end < row; y++ )
        if( std::memcmp( blocks.lhsRow( y ) + end, blocks.rhsRow( y ) + end, row - end ) != 0 )
            end += lastDifferent( blocks.lhsRow( y ) + end, blocks.rhsRow( y ) + end, row - end );
    const size_t bytes = static_cast<size_t>( blocks.bytes );
    return static_cast<int>( ( end + bytes - 1 ) / bytes );
}

bool compareAll( const Blocks& blocks, GRect& diffRect )
{
    const int height = blocks.height;
    diffRect.top = firstDifferentRow( blocks );
    if( diffRect.top == INT_MAX ) return false;
    GASSERT( GWITHIN( 0, diffRect.top, height-1 ) );
    diffRect.bottom = endOfDifferentRows( blocks, diffRect.top );
    diffRect.left = firstDifferentColumn( blocks, diffRect.top, diffRect.bottom );
    GASSERT( diffRect.left != INT_MAX );
    diffRect.right = endOfDifferentColumns( blocks, diffRect.top, diffRect.bottom, diffRect.left );
    return true;
}

// ---- Samples of a downsampled picture.

class Samples
{
public:
    Samples( const GImageFormat& lhsFormat, const char* lhsBuffer, const GRect& lhsRect, const Blocks& blocks,
             int factor )
        : _blocks( blocks ), _left( lhsRect.left ), _top( lhsRect.top ), _mask( ~( factor - 1 ) ), _factor( factor ),
          _lhs( lhsBuffer ), _lhsStride( static_cast<size_t>( GImageRowStride( lhsFormat.type, lhsFormat.width ) ) )
    {
    }
    bool compare( GRect& diffRect ) const;

private:
    bool _differ( int x, int y ) const
    {
        const size_t bytes = static_cast<size_t>( _blocks.bytes );
        const char* lhs = _lhs + static_cast<size_t>( ( _top + y ) & _mask ) * _lhsStride +
                          static_cast<size_t>( ( _left + x ) & _mask ) * bytes;
        const char* rhs = _blocks.rhsRow( y ) + static_cast<size_t>( x ) * bytes;
        if( bytes == 4 ) return std::memcmp( lhs, rhs, 4 ) != 0;
        return std::memcmp( lhs, rhs, bytes ) != 0;
    }
    bool _rowDiffers( int y ) const
    {
        for( int x = 0; x < _blocks.width; x += _factor )
            if( _differ( x, y ) ) return true;
        return false;
    }
    bool _columnDiffers( int x, int top, int bottom ) const
    {
        for( int y = top; y < bottom; y += _factor )
            if( _differ( x, y ) ) return true;
        return false;
    }

    const Blocks& _blocks;
    int _left;
    int _top;
    int _mask;
    int _factor;
    const char* _lhs;
    size_t _lhsStride;
};

bool Samples::compare( GRect& diffRect ) const
{
    const int width = _blocks.width, height = _blocks.height;
    for( int y = 0; y < height && diffRect.top == INT_MAX; y += _factor )
        if( _rowDiffers( y ) ) diffRect.top = y;
    if( diffRect.top == INT_MAX ) return false;
    GASSERT( GWITHIN( 0, diffRect.top, height-1 ) );

    int y = height - _factor;
    while( y > diffRect.top && !_rowDiffers( y ) ) y -= _factor;
    diffRect.bottom = y > diffRect.top ? std::min( y + _factor, height + 1 ) : diffRect.top + 1;

    for( int x = 0; x < width && diffRect.left == INT_MAX; x += _factor )
        if( _columnDiffers( x, diffRect.top, diffRect.bottom ) ) diffRect.left = x;
    GASSERT( diffRect.left != INT_MAX );

    int x = width - _factor;
    while( x > diffRect.left && !_columnDiffers( x, diffRect.top, diffRect.bottom ) ) x -= _factor;
    diffRect.right = x > diffRect.left ? std::min( x + _factor, width + 1 ) : diffRect.left + 1;
    return true;
}
} // namespace

bool GImageCompare( const GImageFormat& lhsFormat, const char* lhsBuffer, const GRect& lhsRect,
                    const GImageFormat& rhsFormat, const char* rhsBuffer, const GRect& rhsRect, GRect& diffRect,
                    int downsampleFactor )
{
    GPRECONDITION( lhsFormat.type == rhsFormat.type );
    GPRECONDITION( lhsBuffer );
    GPRECONDITION( rhsBuffer );
    GPRECONDITION( GVALIDRECT( lhsRect ) );
    GPRECONDITION( GVALIDRECT( rhsRect ) );
    GPRECONDITION( (lhsRect.right-lhsRect.left) == (rhsRect.right-rhsRect.left) );
    GPRECONDITION( (lhsRect.bottom-lhsRect.top) == (rhsRect.bottom-rhsRect.top) );
    GPRECONDITION( 0 <= lhsRect.left && lhsRect.right <= lhsFormat.width );
    GPRECONDITION( 0 <= rhsRect.left && rhsRect.right <= rhsFormat.width );
    GPRECONDITION( 0 <= lhsRect.top && lhsRect.bottom <= lhsFormat.height );
    GPRECONDITION( 0 <= rhsRect.top && rhsRect.bottom <= rhsFormat.height );
    GPRECONDITION( GImageBytesPerPixel( lhsFormat.type ) > 0 );
    // The remainder turns 0 and the lowest number into shifts that do not match them.
    const int shift = std::countr_zero( static_cast<uint32_t>( downsampleFactor ) ) % 31;
    GASSERT( (1 << shift) == downsampleFactor );

    diffRect = GRectAccumulator( );
    const GImageRows lhs = GImageRowsOf( lhsFormat, lhsBuffer, lhsRect );
    const GImageRows rhs = GImageRowsOf( rhsFormat, rhsBuffer, rhsRect );
    const Blocks blocks{ reinterpret_cast<const char*>( lhs.data ),
                         reinterpret_cast<const char*>( rhs.data ),
                         static_cast<size_t>( lhs.stride ),
                         static_cast<size_t>( rhs.stride ),
                         lhs.width,
                         lhs.height,
                         GImageBytesPerPixel( lhsFormat.type ) };
    if( downsampleFactor == 1 ) return compareAll( blocks, diffRect );
    return Samples( lhsFormat, lhsBuffer, lhsRect, blocks, downsampleFactor ).compare( diffRect );
}
