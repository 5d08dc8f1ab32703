// PNG to and from memory. Images of peers pass through here alone: the size is known before a row is decoded.
#include "GImagePNGRows.h"

#include <csetjmp>
#include <cstring>
#include <png.h>

namespace
{
constexpr int COMPRESSION_LEVEL = 6;

void appendBytes( png_structp png, png_bytep data, png_size_t length )
{
    static_cast<GString*>( png_get_io_ptr( png ) )->append( reinterpret_cast<const char*>( data ), length );
}
void flushBytes( png_structp ) {}
// The library's own way out: back to the jump buffer, silently.
[[noreturn]] void leave( png_structp png, png_const_charp )
{
    longjmp( png_jmpbuf( png ), 1 );
}
void ignoreWarning( png_structp, png_const_charp ) {}

struct Input
{
    const char* data;
    size_t left;
};
void readBytes( png_structp png, png_bytep to, png_size_t length )
{
    Input* input = static_cast<Input*>( png_get_io_ptr( png ) );
    if( length > input->left ) png_error( png, "short" );
    std::memcpy( to, input->data, length );
    input->data += length;
    input->left -= length;
}

void writeHeader( png_structp png, png_infop info, const GImageRows& rows )
{
    png_set_compression_level( png, COMPRESSION_LEVEL );
    png_set_IHDR( png, info, static_cast<png_uint_32>( rows.width ), static_cast<png_uint_32>( rows.height ), 8,
                  PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT );
    png_write_info( png, info );
}

void writeRows( png_structp png, png_infop info, int type, const GImageRows& rows, bool flat )
{
    if( flat ) png_set_filter( png, PNG_FILTER_TYPE_BASE, PNG_FILTER_NONE );
    writeHeader( png, info, rows );
    if( type == GIT_RGBA32 || type == GIT_BGRA32 ) png_set_filler( png, 0, PNG_FILLER_AFTER );
    if( type == GIT_BGR24 || type == GIT_BGRA32 ) png_set_bgr( png );
    for( int y = 0; y < rows.height; y++ )
        png_write_row( png, const_cast<png_bytep>( rows.data + static_cast<ptrdiff_t>( y ) * rows.stride ) );
    png_write_end( png, info );
}

// The library's frame around contents that are packed already.
void writePacked( png_structp png, png_infop info, const GImageRows& rows, const uint8_t* packed, size_t length )
{
    writeHeader( png, info, rows );
    png_write_chunk( png, reinterpret_cast<png_const_bytep>( "IDAT" ), packed, length );
    png_write_chunk( png, reinterpret_cast<png_const_bytep>( "IEND" ), nullptr, 0 );
}

bool write( int type, const GImageRows& rows, GString& out )
{
    const bool flat = GImagePNGIsFlat( rows, GImageBytesPerPixel( type ) );
    size_t length = 0;
    const uint8_t* const packed = int64_t{ rows.width } * rows.height * 3 <= GIMAGE_PNG_AT_ONCE
                                      ? GImagePNGPack( type, rows, flat, length )
                                      : nullptr;
    png_structp png_ptr = png_create_write_struct( PNG_LIBPNG_VER_STRING, nullptr, leave, ignoreWarning );
    GASSERT( png_ptr );
    png_infop info_ptr = png_create_info_struct( png_ptr );
    GASSERT( info_ptr );
    if( setjmp( png_jmpbuf( png_ptr ) ) )
    {
        png_destroy_write_struct( &png_ptr, &info_ptr );
        GASSERT_TEXT( false, "!_setjmp( ((png_ptr)->jmpbuf) )" );
        return false;
    }
    png_set_write_fn( png_ptr, &out, appendBytes, flushBytes );
    if( packed )
        writePacked( png_ptr, info_ptr, rows, packed, length );
    else
        writeRows( png_ptr, info_ptr, type, rows, flat );
    png_destroy_write_struct( &png_ptr, &info_ptr );
    return true;
}

// Every layout becomes three bytes or four, red first.
void expandToRGB( png_structp png, png_infop info )
{
    const int colour = png_get_color_type( png, info );
    if( png_get_bit_depth( png, info ) == 16 ) png_set_strip_16( png );
    if( colour == PNG_COLOR_TYPE_PALETTE ) png_set_palette_to_rgb( png );
    if( colour == PNG_COLOR_TYPE_GRAY || colour == PNG_COLOR_TYPE_GRAY_ALPHA )
    {
        if( png_get_bit_depth( png, info ) < 8 ) png_set_expand_gray_1_2_4_to_8( png );
        png_set_gray_to_rgb( png );
    }
    png_set_interlace_handling( png );
    png_read_update_info( png, info );
}

// Runs under the jump buffer of its caller: nothing here owns anything that must be destroyed.
bool readInto( png_structp png, png_infop info, int64_t maxPixels, GImageFormat& format, GString& pixels )
{
    png_read_info( png, info );
    const int64_t width = png_get_image_width( png, info );
    const int64_t height = png_get_image_height( png, info );
    if( width < 1 || height < 1 || width > maxPixels / height ) return false;
    expandToRGB( png, info );
    const int channels = png_get_channels( png, info );
    if( channels != 3 && channels != 4 ) return false;
    format = { channels == 4 ? GIT_RGBA32 : GIT_RGB24, static_cast<int32_t>( width ), static_cast<int32_t>( height ) };
    const size_t stride = static_cast<size_t>( GImageRowStride( format.type, format.width ) );
    if( png_get_rowbytes( png, info ) != stride ) return false;
    pixels.resize( stride * static_cast<size_t>( height ) );
    const int passes = png_get_interlace_type( png, info ) == PNG_INTERLACE_ADAM7 ? 7 : 1;
    for( int pass = 0; pass < passes; pass++ )
        for( int64_t y = 0; y < height; y++ )
            png_read_row( png, reinterpret_cast<png_bytep>( pixels.data( ) ) + stride * static_cast<size_t>( y ),
                          nullptr );
    return true;
}
} // namespace

bool GImageEncodePNG( int fromType, const GImageRows& from, GString& out )
{
    out.clear( );
    if( fromType < GIT_RGB24 || fromType > GIT_BGRA32 )
    {
        GLOG( u"ERROR Attempting to encode unsupported format #", fromType, u", aborting." );
        GAbort( );
        return false;
    }
    if( fromType != GIT_RGB565 && fromType != GIT_RGB555 ) return write( fromType, from, out );
    const int stride = from.width * 3;
    uint8_t* rows = GImageScratch( 2, static_cast<size_t>( stride ) * static_cast<size_t>( from.height ) );
    GImageConvertRows( fromType, from, GIT_BGR24, rows, stride );
    return write( GIT_BGR24, { rows, stride, from.width, from.height }, out );
}

// signature 8 | chunks: u32 length, most significant byte first | 4 name | data | u32 checksum
bool GImagePNGIsWhole( std::string_view file )
{
    constexpr size_t SIGNATURE = 8, FRAME = 12;
    for( size_t at = SIGNATURE; at + FRAME <= file.size( ); )
    {
        size_t length = 0;
        for( size_t i = 0; i < 4; i++ ) length = length << 8 | static_cast<uint8_t>( file[at + i] );
        if( length > file.size( ) - at - FRAME ) return false;
        if( file.substr( at + 4, 4 ) == "IEND" ) return true;
        at += FRAME + length;
    }
    return false;
}

bool GImageLoadPNG( const char* buffer, int length, int64_t maxPixels, GImageFormat& format, GString& pixels )
{
    Input input{ buffer, length > 0 ? static_cast<size_t>( length ) : 0 };
    if( !buffer || input.left < 8 || png_sig_cmp( reinterpret_cast<png_const_bytep>( buffer ), 0, 8 ) ) return false;
    if( !GImagePNGIsWhole( { buffer, input.left } ) ) return false;
    png_structp png = png_create_read_struct( PNG_LIBPNG_VER_STRING, nullptr, leave, ignoreWarning );
    if( !png ) return false;
    png_infop info = png_create_info_struct( png );
    volatile bool good = false;
    if( info && !setjmp( png_jmpbuf( png ) ) )
    {
        png_set_read_fn( png, &input, readBytes );
        png_set_user_limits( png, 0x7FFFFF, 0x7FFFFF );
        png_set_chunk_cache_max( png, 64 );
        // Only what the pixels need is read: some of the others would take memory by the length that they claim.
        png_set_keep_unknown_chunks( png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1 );
        good = readInto( png, info, maxPixels, format, pixels );
    }
    png_destroy_read_struct( &png, info ? &info : nullptr, nullptr );
    return good;
}
