#include "client/drawing/GImageTools.h"

#include "image/GImage.h"

#include <algorithm>
#include <cstring>

namespace
{
// Which images came from files.
constexpr GWStringView FILE_LIST = u"Image_File_List";

int64_t bytesOf( const GImageFormat& format )
{
    if( format.width < 1 || format.height < 1 ) return 0;
    if( format.type == GIT_IYUY ) return GImageSizeIYUY( format.width, format.height );
    if( format.type == GIT_GRAY4 ) return GImageSizeGray4( format.width, format.height );
    return GImageSize( format );
}

// Serialized numbers under "<name><suffix>". The buffers stay with the thread, so that nothing is allocated.
bool readNumbers( GInstance& instance, GWStringView name, GWStringView suffix, int32_t* numbers, int count )
{
    thread_local GWString key;
    thread_local GString bytes;
    key.assign( name ).append( suffix );
    instance.get( key, bytes );
    if( static_cast<int>( bytes.size( ) ) != count * 4 ) return false;
    for( int i = 0; i < count; i++ )
    {
        uint32_t number = 0;
        GDeserialize( bytes.data( ) + i * 4, 4, number );
        numbers[i] = static_cast<int32_t>( number );
    }
    return true;
}

void writeNumbers( GInstance& instance, GWStringView name, GWStringView suffix, const int32_t* numbers, int count )
{
    thread_local GWString key;
    thread_local GString bytes;
    key.assign( name ).append( suffix );
    bytes.clear( );
    for( int i = 0; i < count; i++ ) GSerialize( static_cast<uint32_t>( numbers[i] ), bytes );
    instance.set( key, bytes );
}

bool readFormat( GInstance& instance, GWStringView name, GImageFormat& format )
{
    int32_t numbers[3];
    if( !readNumbers( instance, name, u"_Format", numbers, 3 ) ) return false;
    format = { numbers[0], numbers[1], numbers[2] };
    return true;
}

void writeFormat( GInstance& instance, GWStringView name, const GImageFormat& format )
{
    const int32_t numbers[3] = { format.type, format.width, format.height };
    writeNumbers( instance, name, u"_Format", numbers, 3 );
}

// Splits "name(left,top,right,bottom)"; without a good rectangle the whole text is the name. A name that is not the whole text lies in
// `storage`.
const GWString& splitSource( const GWString& source, GRect& rect, GWString& storage )
{
    rect = GRect( );
    const size_t open = source.rfind( u'(' );
    if( open == GWString::npos || source.back( ) != u')' ) return source;
    const GStringList list = GSplitList( GWStringView( source ).substr( open + 1, source.size( ) - open - 2 ), u"," );
    if( list.size( ) != 4 ) return source;
    int32_t numbers[4];
    int i = 0;
    // No picture is larger.
    constexpr int64_t FARTHEST = 1 << 20;
    for( const GWString& item : list )
        numbers[i++] = static_cast<int32_t>( std::clamp( GCalc( item ), -FARTHEST, FARTHEST ) );
    rect = { numbers[0], numbers[1], numbers[2], numbers[3] };
    storage = GTrim( GWStringView( source ).substr( 0, open ) );
    return storage;
}

bool loadFile( GInstance& instance, const GWString& name )
{
    GString file, pixels;
    GImageFormat format;
    if( !GFileExists( name ) || !GFileLoad( name, file ) ) return false;
    if( !GImageLoad( file.data( ), static_cast<int>( file.size( ) ), format, pixels ) ) return false;
    writeFormat( instance, name, format );
    instance.setRaw( name, pixels.data( ), static_cast<int>( pixels.size( ) ) );
    instance.insert( FILE_LIST, name );
    return true;
}

bool isThere( GInstance& instance, const GWString& name )
{
    thread_local GWString key;
    key.assign( name ).append( u"_Format" );
    return instance.isSet( name ) || instance.isSet( key );
}

void moveToCell( GRect& rect, int column, int row )
{
    constexpr int MOST_CELLS = 256;
    const int x = rect.width( ) * std::clamp( column, -MOST_CELLS, MOST_CELLS );
    const int y = rect.height( ) * std::clamp( row, -MOST_CELLS, MOST_CELLS );
    rect = { rect.left + x, rect.top + y, rect.right + x, rect.bottom + y };
}
} // namespace

char* GImageTools_instanceWriteOpen( GInstance* instance, const GWString& name, const GImageFormat& format )
{
    GPRECONDITION( instance && name.size( ) );
    GString& value = instance->open( name );
    value.resize( static_cast<size_t>( bytesOf( format ) ) );
    return value.data( );
}

void GImageTools_instanceWriteClose( GInstance* instance, const GWString& name, const GImageFormat& format,
                                     const GRect& dirtyRect )
{
    GPRECONDITION( instance && name.size( ) );
    const int32_t numbers[4] = { dirtyRect.left, dirtyRect.top, dirtyRect.right, dirtyRect.bottom };
    writeFormat( *instance, name, format );
    writeNumbers( *instance, name, u"_DirtyRect", numbers, 4 );
    instance->close( name, true );
}

void GImageTools_instanceWrite( GInstance* instance, const GWString& name, const GImageFormat& format,
                                const char* data )
{
    GPRECONDITION( data );
    char* pixels = GImageTools_instanceWriteOpen( instance, name, format );
    std::memcpy( pixels, data, static_cast<size_t>( bytesOf( format ) ) );
    GImageTools_instanceWriteClose( instance, name, format, { 0, 0, format.width, format.height } );
}

void GImageTools_instanceWrite( GInstance* instance, const GWString& name, const GImageFormat& format,
                                const GString& data )
{
    GPRECONDITION( static_cast<int64_t>( data.size( ) ) >= bytesOf( format ) );
    GImageTools_instanceWrite( instance, name, format, data.data( ) );
}

const char* GImageTools_instanceReadOpen( GInstance* instance, const GWString& source, GImageFormat& format,
                                          GRect& rect, int column, int row )
{
    GPRECONDITION( instance && source.size( ) );
    GWString storage;
    const GWString& name = splitSource( source, rect, storage );
    GPRECONDITION( name.size( ) );
    const GObjectLock lock( *instance );
    if( !isThere( *instance, name ) && !loadFile( *instance, name ) ) return nullptr;
    GString& value = instance->open( name );
    if( !readFormat( *instance, name, format ) || value.empty( ) ||
        bytesOf( format ) != static_cast<int64_t>( value.size( ) ) )
    {
        instance->close( name, false );
        return nullptr;
    }
    const GRect whole{ 0, 0, format.width, format.height };
    if( GRectEmpty( rect ) ) rect = whole;
    if( column || row ) moveToCell( rect, column, row );
    rect = GRectIntersect( rect, whole );
    if( GRectEmpty( rect ) ) rect = GRect( );
    return value.data( );
}

void GImageTools_instanceReadClose( GInstance* instance, const GWString& name )
{
    GPRECONDITION( instance && name.size( ) );
    GRect rect;
    GWString storage;
    instance->close( splitSource( name, rect, storage ), false );
}

bool GImageTools_instanceReadCheck( GInstance* instance, const GWString& source, GImageFormat& format, GRect& rect )
{
    if( !GImageTools_instanceReadOpen( instance, source, format, rect ) ) return false;
    GImageTools_instanceReadClose( instance, source );
    return true;
}

bool GImageTools_instanceCopy( GInstance* instance, const GWString& source, const GWString& target )
{
    GImageFormat format;
    GRect rect;
    GString copy;
    const char* pixels = GImageTools_instanceReadOpen( instance, source, format, rect );
    if( !pixels ) return false;
    if( GRectHasVolume( rect ) && GImageBytesPerPixel( format.type ) )
    {
        GImageCrop( format, pixels, rect, copy );
        format = { format.type, rect.width( ), rect.height( ) };
    }
    else
        copy.assign( pixels, static_cast<size_t>( bytesOf( format ) ) );
    GImageTools_instanceReadClose( instance, source );
    GImageTools_instanceWrite( instance, target, format, copy );
    return true;
}

bool GImageTools_instanceReadDirtyRect( GInstance* instance, const GWString& name, GRect& rect )
{
    GPRECONDITION( instance && name.size( ) );
    int32_t numbers[4];
    if( !readNumbers( *instance, name, u"_DirtyRect", numbers, 4 ) ) return false;
    rect = { numbers[0], numbers[1], numbers[2], numbers[3] };
    return true;
}

void GImageTools_instanceForgetFiles( GInstance* instance )
{
    GPRECONDITION( instance );
    GStringList names;
    instance->get( FILE_LIST, names );
    for( const GWString& name : names )
        for( const GWStringView suffix : { u"", u"_Format", u"_DirtyRect" } )
            instance->clear( GConcat( name, suffix ) );
    instance->clear( FILE_LIST );
}
