// Image files through FreeImage, which is confined to this file. With all that it stands on it takes longer to load than the rest of
// a start needs for its pictures, which are plain PNGs, so it is loaded by the first file that is none. It keeps 24 and 32 bit pixels as blue, green, red whatever masks
// it is given, so they are swapped here. Its readers of rarer formats, and their tests of what a file is, have faults of their own:
// only PNG, JPEG, GIF and BMP are let through, by their first bytes, before the library sees anything.
#include "GImageRows.h"
#include "base/GBytes.h"
#include "platform/GLibrary.h"

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

template <typename Type>
struct Symbol
{
    explicit Symbol( const char* name )
        : address( reinterpret_cast<Type*>( GLibraryFind( "libfreeimage.so.3", name ) ) )
    {
    }
    operator Type*( ) const { return address; }
    Type* const address;
};

struct Library
{
    const Symbol<decltype( FreeImage_AcquireMemory )> acquireMemory{ "FreeImage_AcquireMemory" };
    const Symbol<decltype( FreeImage_CloseMemory )> closeMemory{ "FreeImage_CloseMemory" };
    const Symbol<decltype( FreeImage_ConvertFromRawBits )> convertFromRawBits{ "FreeImage_ConvertFromRawBits" };
    const Symbol<decltype( FreeImage_ConvertTo24Bits )> convertTo24Bits{ "FreeImage_ConvertTo24Bits" };
    const Symbol<decltype( FreeImage_ConvertToRawBits )> convertToRawBits{ "FreeImage_ConvertToRawBits" };
    const Symbol<decltype( FreeImage_GetFileTypeFromMemory )> getFileTypeFromMemory{
        "FreeImage_GetFileTypeFromMemory" };
    const Symbol<decltype( FreeImage_GetHeight )> getHeight{ "FreeImage_GetHeight" };
    const Symbol<decltype( FreeImage_GetImageType )> getImageType{ "FreeImage_GetImageType" };
    const Symbol<decltype( FreeImage_GetInfoHeader )> getInfoHeader{ "FreeImage_GetInfoHeader" };
    const Symbol<decltype( FreeImage_GetWidth )> getWidth{ "FreeImage_GetWidth" };
    const Symbol<decltype( FreeImage_LoadFromMemory )> loadFromMemory{ "FreeImage_LoadFromMemory" };
    const Symbol<decltype( FreeImage_OpenMemory )> openMemory{ "FreeImage_OpenMemory" };
    const Symbol<decltype( FreeImage_SaveToMemory )> saveToMemory{ "FreeImage_SaveToMemory" };
    const Symbol<decltype( FreeImage_SeekMemory )> seekMemory{ "FreeImage_SeekMemory" };
    const Symbol<decltype( FreeImage_Unload )> unload{ "FreeImage_Unload" };
    const bool isThere = acquireMemory && closeMemory && convertFromRawBits && convertTo24Bits && convertToRawBits &&
                         getFileTypeFromMemory && getHeight && getImageType && getInfoHeader && getWidth &&
                         loadFromMemory && openMemory && saveToMemory && seekMemory && unload;
};

const Library& library( )
{
    static const Library loaded;
    return loaded;
}

struct CloseMemory
{
    void operator( )( FIMEMORY* stream ) const { library( ).closeMemory( stream ); }
};
struct UnloadBitmap
{
    void operator( )( FIBITMAP* bitmap ) const { library( ).unload( bitmap ); }
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
    const Bitmap header( library( ).loadFromMemory( kind, stream, FIF_LOAD_NOPIXELS ) );
    library( ).seekMemory( stream, 0, SEEK_SET );
    if( !header ) return false;
    return isSaneSize( library( ).getWidth( header.get( ) ), library( ).getHeight( header.get( ) ) );
}

// A PNG whose pixels mean what they say: eight bits each of red, green, blue and perhaps alpha, with no curve or colour key that
// changes them. Such a file needs no more than its own library.
// 24 u8 bits a channel | 25 u8 kind: 2 without alpha, 6 with alpha
bool isPlainPNG( std::string_view file )
{
    constexpr size_t HEADER = 33;
    if( file.size( ) < HEADER || !isKnown( file ) || file[0] != '\x89' || file[24] != 8 ) return false;
    const std::string_view before = file.substr( 0, file.find( "IDAT" ) );
    return ( file[25] == 2 || file[25] == 6 ) && before.find( "gAMA" ) == std::string_view::npos &&
           before.find( "tRNS" ) == std::string_view::npos;
}

Bitmap loadBitmap( std::string_view file )
{
    if( !library( ).isThere )
    {
        GLOG( u"WARNING There is no library for this kind of picture, ignoring." );
        return nullptr;
    }
    const Memory stream( library( ).openMemory( reinterpret_cast<BYTE*>( const_cast<char*>( file.data( ) ) ),
                                                static_cast<DWORD>( file.size( ) ) ) );
    if( !stream )
    {
        GLOG( u"WARNING Unable to open memory stream" );
        return nullptr;
    }
    const FREE_IMAGE_FORMAT kind = isKnown( file ) ? library( ).getFileTypeFromMemory( stream.get( ), 0 ) : FIF_UNKNOWN;
    if( !isKnown( kind ) )
    {
        GLOG( u"WARNING Unrecognized format, ignoring." );
        return nullptr;
    }
    Bitmap bitmap;
    if( hasSaneSize( kind, stream.get( ), file ) ) bitmap.reset( library( ).loadFromMemory( kind, stream.get( ), 0 ) );
    if( !bitmap ) GLOG( u"WARNING Unable to load image, ignoring." );
    return bitmap;
}
} // namespace

bool GImageLoad( const char* buffer, int length, GImageFormat& format, GString& pixels )
{
    GPRECONDITION( buffer && length >= 0 );
    const std::string_view file( buffer, static_cast<size_t>( length ) );
    if( isPlainPNG( file ) && GImageLoadPNG( buffer, length, MAX_PIXELS, format, pixels ) ) return true;
    Bitmap bitmap = loadBitmap( file );
    if( !bitmap ) return false;
    const BITMAPINFOHEADER* header = library( ).getInfoHeader( bitmap.get( ) );
    if( header->biCompression != UNCOMPRESSED && header->biCompression != BIT_FIELDS )
    {
        GLOG( u"WARNING Unsupported bitmap compression '", header->biCompression, u"'" );
        return false;
    }
    int bits = header->biBitCount;
    if( library( ).getImageType( bitmap.get( ) ) != FIT_BITMAP || ( bits != 24 && bits != 32 ) )
    {
        bitmap.reset( library( ).convertTo24Bits( bitmap.get( ) ) );
        if( !bitmap )
        {
            GLOG( u"WARNING Unable to convert to 24bpp" );
            return false;
        }
        bits = 24;
    }
    format = { bits == 32 ? GIT_BGRA32 : GIT_BGR24, static_cast<int32_t>( library( ).getWidth( bitmap.get( ) ) ),
               static_cast<int32_t>( library( ).getHeight( bitmap.get( ) ) ) };
    pixels.resize( static_cast<size_t>( GImageSize( format ) ) );
    library( ).convertToRawBits( reinterpret_cast<BYTE*>( pixels.data( ) ), bitmap.get( ),
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
    GASSERT( library( ).isThere );
    const Bitmap bitmap( library( ).convertFromRawBits( rows, from.width, from.height, stride, 24, 0xFF0000, 0x00FF00,
                                                        0x0000FF, TRUE ) );
    const Memory stream( library( ).openMemory( nullptr, 0 ) );
    BYTE* data = nullptr;
    DWORD size = 0;
    const bool saved = bitmap && stream && library( ).saveToMemory( FIF_JPEG, bitmap.get( ), stream.get( ), 0 ) &&
                       library( ).acquireMemory( stream.get( ), &data, &size );
    GASSERT( saved );
    if( saved ) out.assign( reinterpret_cast<const char*>( data ), size );
    return saved;
}
