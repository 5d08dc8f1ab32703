#include "GImageRows.h"

#include <algorithm>
#include <cstring>

namespace
{
bool hasAlpha( int type )
{
    return type == GIT_RGBA32 || type == GIT_BGRA32;
}

uint8_t* pixelOf( const GImageFormat& format, char* buffer, const GRect& rect )
{
    return reinterpret_cast<uint8_t*>( buffer ) +
           ( static_cast<ptrdiff_t>( rect.top ) * format.width + rect.left ) * GImageBytesPerPixel( format.type );
}

void unsupportedTarget( int type )
{
    GLOG( u"ERROR Attempting to copy into unsupported format #", type, u", aborting." );
    GAbort( );
}

void composeRow( const uint8_t* from, uint8_t* to, int width, int flags )
{
    if( flags & GIC_OPAQUE )
    {
        if( flags & GIC_PREMULTIPLIED ) return GImagePremultiplyRow( from, to, width );
        std::memcpy( to, from, static_cast<size_t>( width ) * 4 );
        return;
    }
    if( flags & GIC_PREMULTIPLIED ) return GImageComposePremultiplied( from, to, width );
    GImageComposeStraight( from, to, width );
}

// The core: equal types and equal sizes.
void _GImageCopy( int fromType, const GImageRows& from, const GImageFormat& toFormat, char* toBuffer,
                  const GRect& toRect, int flags )
{
    const int fromWidth = from.width, fromHeight = from.height;
    const int toWidth = toRect.width( ), toHeight = toRect.height( );
    GASSERT_TEXT( fromType == toFormat.type, "fromFormat.type == toFormat.type" );
    GASSERT( fromWidth == toWidth && fromHeight == toHeight );
    const int bytes = GImageBytesPerPixel( toFormat.type );
    if( bytes < 2 ) return unsupportedTarget( toFormat.type );
    const ptrdiff_t stride = GImageRowStride( toFormat.type, toFormat.width );
    const uint8_t* source = from.data;
    uint8_t* target = pixelOf( toFormat, toBuffer, toRect );
    const bool plain = bytes < 4 || ( flags & ( GIC_OPAQUE | GIC_PREMULTIPLIED ) ) == GIC_OPAQUE;
    const size_t rowBytes = static_cast<size_t>( fromWidth ) * static_cast<size_t>( bytes );
    if( plain && from.stride == stride && stride == static_cast<ptrdiff_t>( rowBytes ) )
    {
        std::memcpy( target, source, rowBytes * static_cast<size_t>( fromHeight ) );
        return;
    }
    for( int y = 0; y < fromHeight; y++, source += from.stride, target += stride )
    {
        if( plain )
            std::memcpy( target, source, rowBytes );
        else
            composeRow( source, target, fromWidth, flags );
    }
}

// A source of another layout: rows without alpha go straight to their place, others pass through one row of the target's layout.
void copyConverted( int fromType, const GImageRows& from, const GImageFormat& toFormat, char* toBuffer,
                    const GRect& toRect, int flags )
{
    const int stride = GImageRowStride( toFormat.type, toFormat.width );
    uint8_t* target = pixelOf( toFormat, toBuffer, toRect );
    if( !hasAlpha( fromType ) || !hasAlpha( toFormat.type ) )
    {
        if( !GImageConvertRows( fromType, from, toFormat.type, target, stride ) )
            GImageUnsupported( fromType, toFormat.type );
        return;
    }
    uint8_t* between = GImageScratch( 2, static_cast<size_t>( from.width ) * 4 );
    GImageRows row{ from.data, from.stride, from.width, 1 };
    for( int y = 0; y < from.height; y++, row.data += from.stride, target += stride )
    {
        GImageConvertRows( fromType, row, toFormat.type, between, from.width * 4 );
        composeRow( between, target, from.width, flags );
    }
}

// One direction of the placing: which part of the source lands where, and whether it repeats.
struct Span
{
    int source = 0; // First pixel of the source that is used.
    int length = 0; // Pixels of one tile.
    int start = 0;  // Where the first tile begins in the target.
    int end = 0;    // Where the last one ends.
};

Span placeSpan( int sourceLength, int targetStart, int targetLength, bool middle, bool atEnd, bool tile )
{
    Span span;
    span.start = targetStart;
    span.length = std::min( sourceLength, targetLength );
    if( sourceLength > targetLength )
    {
        if( middle )
            span.source = ( sourceLength - targetLength ) / 2;
        else if( atEnd )
            span.source = sourceLength - targetLength;
    }
    span.end = tile ? targetStart + targetLength : targetStart + span.length;
    return span;
}

// Where the first tile begins of which something lies behind `edge`.
int firstTile( const Span& span, int edge )
{
    if( span.start >= edge ) return span.start;
    return span.start + ( edge - span.start ) / span.length * span.length;
}

GRect keepAspect( const GRect& from, const GRect& to )
{
    const int64_t fromWidth = from.width( ), fromHeight = from.height( );
    const int64_t width = to.width( ), height = to.height( );
    GRect result = to;
    if( fromWidth * height > fromHeight * width )
    {
        const int shrunk = std::max( 1, static_cast<int>( width * fromHeight / fromWidth ) );
        result.top += ( to.height( ) - shrunk ) / 2;
        result.bottom = result.top + shrunk;
    }
    else
    {
        const int shrunk = std::max( 1, static_cast<int>( height * fromWidth / fromHeight ) );
        result.left += ( to.width( ) - shrunk ) / 2;
        result.right = result.left + shrunk;
    }
    return result;
}

struct Source
{
    int type;
    GImageRows rows;
};

// Scales into the thread's scratch rows; a layout that cannot be scaled is converted first.
void stretch( Source& source, int width, int height, int targetType )
{
    if( source.rows.width == width && source.rows.height == height ) return;
    const bool scalable = source.type != GIT_RGB565 && source.type != GIT_RGB555 && source.type != GIT_YUY2;
    if( !scalable && targetType != source.type )
    {
        const int stride = GImageRowStride( targetType, source.rows.width );
        uint8_t* converted =
            GImageScratch( 2, static_cast<size_t>( stride ) * static_cast<size_t>( source.rows.height ) );
        if( !GImageConvertRows( source.type, source.rows, targetType, converted, stride ) )
            return GImageUnsupported( source.type, targetType );
        source = { targetType, { converted, stride, source.rows.width, source.rows.height } };
    }
    const int stride = GImageRowStride( source.type, width );
    uint8_t* scaled = GImageScratch( 3, static_cast<size_t>( stride ) * static_cast<size_t>( height ) );
    if( !GImageScaleRows( source.type, source.rows, scaled, stride, width, height ) )
    {
        GLOG( u"ERROR: Attempting to resize unsupported image type #", source.type, u", aborting." );
        GAbort( );
        return;
    }
    source.rows = { scaled, stride, width, height };
}

// One tile whose upper left corner lies at (x, y) of the target, clipped.
GRect copyTile( const Source& source, const Span& across, const Span& down, int x, int y, const GRect& clip,
                const GImageFormat& toFormat, char* toBuffer, int flags )
{
    const GRect tile{ x, y, std::min( x + across.length, across.end ), std::min( y + down.length, down.end ) };
    const GRect target = GRectIntersect( tile, clip );
    if( GRectEmpty( target ) ) return GRectAccumulator( );
    const int fromWidth = target.width( ), toWidth = across.length;
    const int fromHeight = target.height( ), toHeight = down.length;
    GASSERT( fromWidth <= toWidth );
    GASSERT( fromHeight <= toHeight );
    const int left = across.source + target.left - x;
    const int top = down.source + target.top - y;
    GImageRows rows = source.rows;
    rows.data += static_cast<ptrdiff_t>( top ) * rows.stride +
                 static_cast<ptrdiff_t>( left ) * GImageBytesPerPixel( source.type );
    rows.width = fromWidth;
    rows.height = fromHeight;
    if( source.type == toFormat.type )
        _GImageCopy( source.type, rows, toFormat, toBuffer, target, flags );
    else
        copyConverted( source.type, rows, toFormat, toBuffer, target, flags );
    return target;
}
} // namespace

GRect GImageCopy( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& fromRect,
                  const GImageFormat& toFormat, char* toBuffer, const GRect& toRect, int flags )
{
    return GImageCopy( fromFormat, fromBuffer, fromRect, toFormat, toBuffer, toRect, toRect, flags );
}

GRect GImageCopy( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& fromRect,
                  const GImageFormat& toFormat, char* toBuffer, const GRect& toRect, const GRect& clipRect, int flags )
{
    GPRECONDITION( fromBuffer && toBuffer );
    GPRECONDITION( fromFormat.width > 0 && fromFormat.height > 0 );
    GPRECONDITION( toFormat.width > 0 && toFormat.height > 0 );
    const GRect area = GRectIntersect( fromRect, { 0, 0, fromFormat.width, fromFormat.height } );
    const GRect clip = GRectIntersect( clipRect, { 0, 0, toFormat.width, toFormat.height } );
    GRect touched = GRectAccumulator( );
    if( GRectEmpty( area ) || GRectEmpty( toRect ) || GRectEmpty( clip ) ) return touched;

    GRect place = toRect;
    if( flags & GIC_ASPECT )
    {
        place = keepAspect( area, toRect );
        flags |= GIC_STRETCH_X | GIC_STRETCH_Y;
    }
    if( GRectEmpty( GRectIntersect( place, clip ) ) ) return touched;
    Source source{ fromFormat.type, GImageRowsOf( fromFormat, fromBuffer, area ) };
    stretch( source, flags & GIC_STRETCH_X ? place.width( ) : area.width( ),
             flags & GIC_STRETCH_Y ? place.height( ) : area.height( ), toFormat.type );
    const Span across = placeSpan( source.rows.width, place.left, place.width( ), ( flags & GIC_CENTER ) != 0,
                                   ( flags & GIC_RIGHT ) != 0, ( flags & GIC_TILE_X ) != 0 );
    const Span down = placeSpan( source.rows.height, place.top, place.height( ), ( flags & GIC_MIDDLE ) != 0,
                                 ( flags & GIC_BOTTOM ) != 0, ( flags & GIC_TILE_Y ) != 0 );
    const int left = firstTile( across, clip.left ), top = firstTile( down, clip.top );
    for( int y = top; y < down.end && y < clip.bottom; y += down.length )
        for( int x = left; x < across.end && x < clip.right; x += across.length )
            touched = GRectUnion( touched, copyTile( source, across, down, x, y, clip, toFormat, toBuffer, flags ) );
    return touched;
}

void GImageCrop( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& fromRect, GString& out )
{
    GPRECONDITION( fromBuffer && fromFormat.width > 0 && fromFormat.height > 0 );
    GPRECONDITION( GVALIDRECT( fromRect ) && GRectWithin( fromRect, fromFormat.width, fromFormat.height ) && !GRectEmpty( fromRect ) );
    const GImageFormat format{ fromFormat.type, fromRect.width( ), fromRect.height( ) };
    if( !GImageBytesPerPixel( format.type ) ) return unsupportedTarget( format.type );
    out.resize( static_cast<size_t>( GImageSize( format ) ) );
    GImageConvertRows( format.type, GImageRowsOf( fromFormat, fromBuffer, fromRect ), format.type,
                       reinterpret_cast<uint8_t*>( out.data( ) ), GImageRowStride( format.type, format.width ) );
}

void GImageReframe( GImageFormat& format, GString& buffer, int newWidth, int newHeight, uint32_t background )
{
    GPRECONDITION( format.width > 0 && format.height > 0 && newWidth > 0 && newHeight > 0 );
    if( format.width == newWidth && format.height == newHeight ) return;
    const GImageFormat old = format;
    const GString pixels = buffer;
    format.width = newWidth;
    format.height = newHeight;
    buffer.resize( static_cast<size_t>( GImageSize( format ) ) );
    GImageFillRect( format, buffer.data( ), { 0, 0, newWidth, newHeight }, background );
    const GRect kept{ 0, 0, std::min( old.width, newWidth ), std::min( old.height, newHeight ) };
    GImageCopy( old, pixels.data( ), kept, format, buffer.data( ), kept, GIC_OPAQUE );
    GASSERT( format.width == newWidth && format.height == newHeight );
}
