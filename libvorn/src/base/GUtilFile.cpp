// The file helpers of GUtil: standard streams and directories only.
#include "base/GUtil.h"

#include <cstdio>
#include <filesystem>

namespace
{
constexpr size_t LOAD_STEP = 4096;

std::filesystem::path nativePath( GWStringView path )
{
    return std::filesystem::path( GWideToUTF8( path ) );
}
FILE* openFile( const GWString& path, const char* mode )
{
    std::error_code error;
    if( std::filesystem::is_directory( nativePath( path ), error ) ) return nullptr;
    return fopen( GWideToUTF8( path ).c_str( ), mode );
}
} // namespace

bool GFileExists( const GWString& path )
{
    GPRECONDITION( !path.empty( ) );
    FILE* const fp = openFile( path, "rb" );
    if( !fp ) return false;
    GVERIFY( !fclose( fp ) );
    return true;
}

bool GFileLoad( const GWString& path, GString& out )
{
    out.clear( );
    // A device or a pipe has no end that it is sure to reach.
    std::error_code error;
    if( !std::filesystem::is_regular_file( nativePath( path ), error ) ) return false;
    FILE* const fp = openFile( path, "rb" );
    if( !fp ) return false;
    char step[LOAD_STEP];
    for( size_t got = fread( step, 1, sizeof( step ), fp ); got > 0; got = fread( step, 1, sizeof( step ), fp ) )
        out.append( step, got );
    GVERIFY( !fclose( fp ) );
    return true;
}

bool GFileSave( const GWString& path, const char* buffer, int64_t length )
{
    GPRECONDITION_TEXT( !path.empty( ) && path[0] != u'/' && path[0] != u'\\',
                        "!path.empty( ) && path[0] != L'/' && path[0] != L'\\\\'" );
    GPRECONDITION( buffer );
    GPRECONDITION( length >= 0 );
    if( !_GFileValidateDir( path ) ) return false;
    FILE* const fp = openFile( path, "wb" );
    if( !fp ) return false;
    const bool written = fwrite( buffer, 1, static_cast<size_t>( length ), fp ) == static_cast<size_t>( length );
    const bool closed = GVERIFY( !fclose( fp ) );
    return written && closed;
}

bool GFileAppend( const GWString& path, const char* buffer, int64_t length )
{
    GPRECONDITION_TEXT( !path.empty( ) && path[0] != u'/' && path[0] != u'\\',
                        "!path.empty( ) && path[0] != L'/' && path[0] != L'\\\\'" );
    GPRECONDITION( buffer );
    GPRECONDITION( length >= 0 );
    GVERIFY( _GFileValidateDir( path ) );
    FILE* const fp = openFile( path, "ab" );
    if( !fp ) return false;
    const bool written =
        GVERIFY_TEXT( fwrite( buffer, 1, static_cast<size_t>( length ), fp ) == static_cast<size_t>( length ),
                      "fwrite( buffer, 1, length, fp ) == length" );
    const bool closed = GVERIFY( !fclose( fp ) );
    return written && closed;
}

bool GFileDelete( const GWString& path )
{
    GPRECONDITION( !path.empty( ) );
    return !remove( GWideToUTF8( path ).c_str( ) );
}

bool GFileMove( const GWString& fromPath, const GWString& toPath )
{
    GPRECONDITION( !fromPath.empty( ) && !toPath.empty( ) );
    return !rename( GWideToUTF8( fromPath ).c_str( ), GWideToUTF8( toPath ).c_str( ) );
}

bool _GFileValidateDir( const GWString& filePath )
{
    GPRECONDITION( !filePath.empty( ) );
    const size_t slash = filePath.rfind( u'/' );
    if( slash == GWString::npos || slash == 0 ) return true;
    return GDirCreateRecursive( filePath.substr( 0, slash ) );
}

bool GDirCreateRecursive( const GWString& path )
{
    GPRECONDITION( !path.empty( ) );
    GWString native = path;
    for( char16_t& unit : native )
        if( unit == u'\\' ) unit = u'/';
    bool created = true;
    for( size_t end = native.find( u'/', 1 ); created; end = native.find( u'/', end + 1 ) )
    {
        const std::filesystem::path prefix = nativePath( GWStringView( native ).substr( 0, end ) );
        std::error_code error;
        created = std::filesystem::create_directory( prefix, error ) || std::filesystem::is_directory( prefix, error );
        if( end == GWString::npos ) break;
    }
    return created;
}

GStringList GFileList( const GWString& directory, const GWString& prefix )
{
    GStringList list;
    std::error_code error;
    const std::filesystem::path folder = directory.empty( ) ? std::filesystem::path( "." ) : nativePath( directory );
    for( std::filesystem::directory_iterator entry( folder, error ), end; !error && entry != end;
         entry.increment( error ) )
    {
        std::error_code statusError;
        const GWString name = GUTF8ToWide( entry->path( ).filename( ).string( ) );
        if( name.starts_with( prefix ) && entry->is_regular_file( statusError ) ) list.push_back( name );
    }
    list.sort( );
    return list;
}
