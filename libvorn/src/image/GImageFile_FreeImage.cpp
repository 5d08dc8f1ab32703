// Image files through FreeImage, which is confined to this file. It keeps 24 and 32 bit pixels as blue, green, red whatever masks
// it is given, so they are swapped here. Its readers of rarer formats, and their tests of what a file is, have faults of their own:
// only PNG, JPEG, GIF and BMP are let through, by their first bytes, before the library sees anything.
#include "GImageRows.h"
#include "base/GBytes.h"

#include <FreeImage.h>
#include <algorithm>
#include <iterator>
#include <memory>
#include <string_view>

namespace
{
constexpr int64_t MAX_PIXELS = 64LL << 20;
// Values of biCompression.
constexpr uint32_t UNCOMPRESSED = 0;
constexpr uint32_t BIT_FIELDS = 3;

struct CloseMemory
{
    void operator( )( FIMEMORY* stream ) const { FreeImage_CloseMemory( stream ); }
};
struct UnloadBitmap
{
    void operator( )( FIBITMAP* bitmap ) const { FreeImage_Unload( bitmap ); }
};
using Memory = std::unique_ptr<FIMEMORY, CloseMemory>;
using Bitmap = std::unique_ptr<FIBITMAP, UnloadBitmap>;

// Whether the file begins like one of the formats that are let through.
bool isKnown( std::string_view file )
{
    constexpr std::string_view BEGINS[] = { "\x89PNG\r\n\x1A\n", "\xFF\xD8\xFF", "GIF87a", "GIF89a", "BM" };
    return std::any_of( std::begin( BEGINS ), std::end( BEGINS ),
                        [file]( std::string_view begin ) { return file.substr( 0, begin.size( ) ) == begin; } );
}
bool isKnown( FREE_IMAGE_FORMAT kind )
{
    return kind == FIF_PNG || kind == FIF_JPEG || kind == FIF_GIF || kind == FIF_BMP;
}

bool isSaneSize( int64_t width, int64_t height )
{
    return width > 0 && height > 0 && width <= MAX_PIXELS / height;
}

// The library decodes a GIF's first picture without a look at its header. Its size stands behind the colour table and extensions:
// 6 u16 screen width | 8 u16 height | 10 u8 flags | 13 colours; an extension is 0x21, a label and blocks of u8 size and data;
// a picture is 0x2C | 1 u16 left | 3 u16 top | 5 u16 width | 7 u16 height
bool isSaneGif( const char* buffer, size_t length )
{
    constexpr uint8_t EXTENSION = 0x21;
    constexpr uint8_t PICTURE = 0x2C;
    if( length < 13 || !isSaneSize( GReadU16( buffer + 6 ), GReadU16( buffer + 8 ) ) ) return false;
    const int flags = GReadU8( buffer + 10 );
    size_t at = 13 + ( flags & 0x80 ? 3u << ( ( flags & 7 ) + 1 ) : 0u );
    while( at < length && GReadU8( buffer + at ) != PICTURE )
    {
        if( GReadU8( buffer + at++ ) != EXTENSION ) continue;
        for( ++at; at < length && GReadU8( buffer + at ); ) at += 1u + GReadU8( buffer + at );
        ++at;
    }
    return at + 9 <= length && isSaneSize( GReadU16( buffer + at + 5 ), GReadU16( buffer + at + 7 ) );
}

// The size is known before anything is decoded.
bool hasSaneSize( FREE_IMAGE_FORMAT kind, FIMEMORY* stream, std::string_view file )
{
    if( kind == FIF_GIF ) return isSaneGif( file.data( ), file.size( ) );
    if( kind == FIF_PNG && !GImagePNGIsWhole( file ) ) return false;
    const Bitmap header( FreeImage_LoadFromMemory( kind, stream, FIF_LOAD_NOPIXELS ) );
    FreeImage_SeekMemory( stream, 0, SEEK_SET );
    if( !header ) return false;
    return isSaneSize( FreeImage_GetWidth( header.get( ) ), FreeImage_GetHeight( header.get( ) ) );
}

Bitmap loadBitmap( std::string_view file )
{
    const Memory stream( FreeImage_OpenMemory( reinterpret_cast<BYTE*>( const_cast<char*>( file.data( ) ) ),
                                               static_cast<DWORD>( file.size( ) ) ) );
    if( !stream )
    {
        GLOG( u"WARNING Unable to open memory stream" );
        return nullptr;
    }
    const FREE_IMAGE_FORMAT kind = isKnown( file ) ? FreeImage_GetFileTypeFromMemory( stream.get( ), 0 ) : FIF_UNKNOWN;
    if( !isKnown( kind ) )
    {
        GLOG( u"WARNING Unrecognized format, ignoring." );
        return nullptr;
    }
    Bitmap bitmap;
    if( hasSaneSize( kind, stream.get( ), file ) ) bitmap.reset( FreeImage_LoadFromMemory( kind, stream.get( ), 0 ) );
    if( !bitmap ) GLOG( u"WARNING Unable to load image, ignoring." );
    return bitmap;
}
} // namespace

bool GImageLoad( const char* buffer, int length, GImageFormat& format, GString& pixels )
{
    GPRECONDITION( buffer && length >= 0 );
    Bitmap bitmap = loadBitmap( { buffer, static_cast<size_t>( length ) } );
    if( !bitmap ) return false;
    const BITMAPINFOHEADER* header = FreeImage_GetInfoHeader( bitmap.get( ) );
    if( header->biCompression != UNCOMPRESSED && header->biCompression != BIT_FIELDS )
    {
        GLOG( u"WARNING Unsupported bitmap compression '", header->biCompression, u"'" );
        return false;
    }
    int bits = header->biBitCount;
    if( FreeImage_GetImageType( bitmap.get( ) ) != FIT_BITMAP || ( bits != 24 && bits != 32 ) )
    {
        bitmap.reset( FreeImage_ConvertTo24Bits( bitmap.get( ) ) );
        if( !bitmap )
        {
            GLOG( u"WARNING Unable to convert to 24bpp" );
            return false;
        }
        bits = 24;
    }
    format = { bits == 32 ? GIT_BGRA32 : GIT_BGR24, static_cast<int32_t>( FreeImage_GetWidth( bitmap.get( ) ) ),
               static_cast<int32_t>( FreeImage_GetHeight( bitmap.get( ) ) ) };
    pixels.resize( static_cast<size_t>( GImageSize( format ) ) );
    FreeImage_ConvertToRawBits( reinterpret_cast<BYTE*>( pixels.data( ) ), bitmap.get( ),
                                GImageRowStride( format.type, format.width ), static_cast<unsigned>( bits ), 0x0000FF,
                                0x00FF00, 0xFF0000, TRUE );
    GImageConvert( format, pixels.data( ), bits == 32 ? GIT_RGBA32 : GIT_RGB24 );
    return true;
}

bool GImageEncodeJPEG( int fromType, const GImageRows& from, GString& out )
{
    out.clear( );
    const int stride = from.width * 3;
    uint8_t* rows = GImageScratch( 2, static_cast<size_t>( stride ) * static_cast<size_t>( from.height ) );
    if( !GImageConvertRows( fromType, from, GIT_BGR24, rows, stride ) ) return false;
    const Bitmap bitmap(
        FreeImage_ConvertFromRawBits( rows, from.width, from.height, stride, 24, 0xFF0000, 0x00FF00, 0x0000FF, TRUE ) );
    const Memory stream( FreeImage_OpenMemory( nullptr, 0 ) );
    BYTE* data = nullptr;
    DWORD size = 0;
    const bool saved = bitmap && stream && FreeImage_SaveToMemory( FIF_JPEG, bitmap.get( ), stream.get( ), 0 ) &&
                       FreeImage_AcquireMemory( stream.get( ), &data, &size );
    GASSERT( saved );
    if( saved ) out.assign( reinterpret_cast<const char*>( data ), size );
    return saved;
}
