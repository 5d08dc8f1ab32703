// Image files through FreeImage, which is confined to this file. It keeps 24 and 32 bit pixels as blue, green, red whatever masks
// it is given, so they are swapped here.
#include "GImageRows.h"

#include <FreeImage.h>
#include <memory>

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

bool hasSaneSize( FREE_IMAGE_FORMAT kind, FIMEMORY* stream )
{
    if( !FreeImage_FIFSupportsNoPixels( kind ) ) return true;
    const Bitmap header( FreeImage_LoadFromMemory( kind, stream, FIF_LOAD_NOPIXELS ) );
    FreeImage_SeekMemory( stream, 0, SEEK_SET );
    if( !header ) return false;
    const int64_t width = FreeImage_GetWidth( header.get( ) );
    const int64_t height = FreeImage_GetHeight( header.get( ) );
    return width > 0 && height > 0 && width <= MAX_PIXELS / height;
}

Bitmap loadBitmap( const char* buffer, int length )
{
    const Memory stream(
        FreeImage_OpenMemory( reinterpret_cast<BYTE*>( const_cast<char*>( buffer ) ), static_cast<DWORD>( length ) ) );
    if( !stream )
    {
        GLOG( u"WARNING Unable to open memory stream" );
        return nullptr;
    }
    const FREE_IMAGE_FORMAT kind = FreeImage_GetFileTypeFromMemory( stream.get( ), 0 );
    if( kind == FIF_UNKNOWN )
    {
        GLOG( u"WARNING Unrecognized format, ignoring." );
        return nullptr;
    }
    Bitmap bitmap;
    if( hasSaneSize( kind, stream.get( ) ) ) bitmap.reset( FreeImage_LoadFromMemory( kind, stream.get( ), 0 ) );
    if( !bitmap ) GLOG( u"WARNING Unable to load image, ignoring." );
    return bitmap;
}
} // namespace

bool GImageLoad( const char* buffer, int length, GImageFormat& format, GString& pixels )
{
    GPRECONDITION( buffer && length >= 0 );
    Bitmap bitmap = loadBitmap( buffer, length );
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
