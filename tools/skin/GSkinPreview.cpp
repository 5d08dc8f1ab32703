#include "GSkinPreview.h"

#include "GSkinPlaces.h"

#include "client/skin/GTemplate.h"
#include "client/skin/nodes/GWindowNode.h"
#include "client/skin/nodes/GWizardNode.h"
#include "image/GColor.h"
#include "image/GImage.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace
{
constexpr int KEY_TAB = 9;
// More stops than any window has.
constexpr int MOST_STOPS = 500;
constexpr int64_t SHOW_TICK = 300000;

// A day in 2026, set forward by hand: fades end, repaints are never held back, and a picture is the same whenever it is drawn.
uint64_t forward_ = 0;
uint64_t clockTime( )
{
    constexpr uint64_t DAY = 13428322800000000ULL; // 9:40 on 12 July 2026.
    return DAY + forward_;
}

template <typename NODE>
NODE* findNode( GTemplateNode* from )
{
    for( GTemplateNode* node = from; node; node = node->getNext( from ) )
        if( auto* found = dynamic_cast<NODE*>( node ) ) return found;
    return nullptr;
}

// Delivers what is posted, then updates and draws.
void settle( GWindowNode& window )
{
    for( int round = 0; round < 3; ++round )
    {
        bool quit = false;
        GWinPostQuit( 0 );
        GWinUpdate( quit );
        forward_ += 1000000;
        window.onNotification( GRESPONSE_UPDATE, GTimeGetTime( ) );
        forward_ += 1000000;
        window.onShow( window.getWin( ) );
    }
}

// ---- Places.

struct Point
{
    int x = -1;
    int y = -1;
};

// Whether the node's path below the window, or one of its attributes as name=value, holds the text. Ignores case.
bool isMeant( const GTemplateNode& node, const GWindowNode& window, const GWString& text )
{
    const auto holds = [&]( const GWString& whole ) { return GToLower( whole ).find( text ) != GWString::npos; };
    if( holds( node.getPath( ).substr( window.getPath( ).size( ) ) ) ) return true;
    return std::ranges::any_of( node.getAttributes( ),
                                [&]( const auto& pair ) { return holds( GConcat( pair.first, u"=", pair.second ) ); } );
}

IGInputHandler* findHandler( GWindowNode& window, const GString& place )
{
    const GWString text = GToLower( GUTF8ToWide( place ) );
    for( GTemplateNode* node = window.getNext( &window ); node; node = node->getNext( &window ) )
    {
        auto* handler = dynamic_cast<IGInputHandler*>( node );
        if( handler && isMeant( *node, window, text ) ) return handler;
    }
    std::fprintf( stderr, "no node '%s'\n", place.c_str( ) );
    return nullptr;
}

// The middle of what the handler takes of the window.
Point getMiddle( const GWindowNode& window, const IGInputHandler* handler )
{
    const auto& map = window.getInputMap( );
    const auto width = static_cast<size_t>( std::max( window.getLayerFormat( ).width, 1 ) );
    std::vector<size_t> owned;
    for( size_t i = 0; i < map.size( ); ++i )
        if( handler && map[i] == handler ) owned.push_back( i );
    if( owned.empty( ) ) return { };
    const size_t middle = owned[owned.size( ) / 2];
    const size_t row = middle / width;
    size_t first = middle;
    size_t last = middle;
    while( first > row * width && map[first - 1] == handler ) --first;
    while( last + 1 < ( row + 1 ) * width && map[last + 1] == handler ) ++last;
    return { static_cast<int>( ( first + last ) / 2 % width ), static_cast<int>( row ) };
}

Point findPlace( GWindowNode& window, const GString& place )
{
    Point point;
    if( std::sscanf( place.c_str( ), "%d,%d", &point.x, &point.y ) == 2 ) return point;
    return getMiddle( window, findHandler( window, place ) );
}

// ---- What the author asked for.

void size( GWindowNode& window, const GSkinOptions& options )
{
    if( options.width < 1 || options.height < 1 ) return;
    GRect rect = window.getRect( );
    rect.right = rect.left + options.width;
    rect.bottom = rect.top + options.height;
    GWinMove( window.getWin( ), rect );
    window.onReposition( window.getWin( ), rect );
}

void point( GWindowNode& window, const GString& place, bool press, bool release )
{
    if( place.empty( ) ) return;
    const Point at = findPlace( window, place );
    if( at.x < 0 ) return;
    const GWin win = window.getWin( );
    window.getNCHITTEST( win, at.x, at.y );
    if( press ) window.onLButtonDown( win, at.x, at.y );
    if( release ) window.onLButtonUp( win, at.x, at.y );
    if( !press ) window.onMouseMove( win, at.x, at.y );
    settle( window );
}

void focus( GWindowNode& window, const GString& path )
{
    if( path.empty( ) ) return;
    const IGInputHandler* wanted = findHandler( window, path );
    for( int i = 0; wanted && i < MOST_STOPS && window.getKeyFocus( ) != wanted; ++i )
        window.onKeyDown( window.getWin( ), KEY_TAB );
    if( wanted && window.getKeyFocus( ) != wanted )
        std::fprintf( stderr, "the tab key does not reach '%s'\n", path.c_str( ) );
    settle( window );
}

// The premultiplied layer over one colour.
GString compose( const GImageFormat& format, const GString& layer, uint32_t background )
{
    const size_t count = static_cast<size_t>( format.width ) * static_cast<size_t>( format.height );
    GString out( count * 3, '\0' );
    for( size_t i = 0; i < count * 3; ++i )
    {
        const size_t pixel = i / 3;
        const auto source = static_cast<unsigned char>( layer[pixel * 4 + i % 3] );
        const auto alpha = static_cast<unsigned char>( layer[pixel * 4 + 3] );
        const uint32_t ground = background >> ( 16 - 8 * ( i % 3 ) ) & 255;
        out[i] = static_cast<char>( std::min<uint32_t>( 255, source + ground * ( 255u - alpha ) / 255 ) );
    }
    return out;
}

// Ends the program when the last window is closed, and says what is wrong whenever the file has changed.
class Shower : public IGTimerListener
{
public:
    explicit Shower( const GSkinOptions& options, void ( *check )( const GSkinOptions& options ) )
        : _options( options ), _check( check ), _stamp( getStamp( ) ), _timer( GTimerOpen( SHOW_TICK, this ) )
    {
    }
    ~Shower( ) override { GTimerClose( _timer ); }
    Shower( const Shower& ) = delete;
    Shower& operator=( const Shower& ) = delete;

    void onTimer( GTimer ) override
    {
        if( !GWinIsAnyShown( ) ) GWinPostQuit( 0 );
        const auto stamp = getStamp( );
        if( stamp == _stamp ) return;
        _stamp = stamp;
        _check( _options );
    }

private:
    std::filesystem::file_time_type getStamp( ) const
    {
        std::error_code error;
        return std::filesystem::last_write_time( GWideToUTF8( _options.file ), error );
    }
    const GSkinOptions& _options;
    void ( *_check )( const GSkinOptions& options );
    std::filesystem::file_time_type _stamp;
    GTimer _timer;
};
} // namespace

void GSkinPreviewStart( )
{
    GTimeSetSource( clockTime );
}

void GSkinPreviewPrepare( const GSkinOptions& options, GWindowNode& window )
{
    window.fadeIn( 0 );
    size( window, options );
    settle( window );
    if( !options.page.empty( ) )
    {
        if( auto* wizard = findNode<GWizardNode>( &window ) ) wizard->jump( options.page );
        settle( window );
    }
    point( window, options.click, true, true );
    focus( window, options.focus );
    for( const char16_t character : options.typed ) window.onKeyPressed( window.getWin( ), character );
    if( !options.typed.empty( ) ) settle( window );
    point( window, options.hover, false, false );
    point( window, options.press, true, false );
}

int GSkinPreviewRender( const GSkinOptions& options, GWindowNode& window )
{
    GSkinPreviewPrepare( options, window );
    GImageFormat format = window.getLayerFormat( );
    if( format.width < 1 || format.height < 1 )
    {
        std::fprintf( stderr, "the window drew nothing\n" );
        return 1;
    }
    const uint32_t ground = GColorFromText( GUTF8ToWide( options.background ) );
    const GString pixels = compose( format, window.getLayerPixels( ), ground );
    format.type = GIT_RGB24;
    GString png;
    GImageConvert( format, pixels.data( ), GRect{ 0, 0, format.width, format.height }, GIT_PNG, png );
    std::unique_ptr<FILE, int ( * )( FILE* )> file( std::fopen( options.out.c_str( ), "wb" ), std::fclose );
    if( !file || std::fwrite( png.data( ), 1, png.size( ), file.get( ) ) != png.size( ) )
    {
        std::fprintf( stderr, "cannot write %s\n", options.out.c_str( ) );
        return 1;
    }
    std::printf( "%s: %d by %d\n", options.out.c_str( ), format.width, format.height );
    return 0;
}

int GSkinPreviewShow( const GSkinOptions& options, GWindowNode& window, void ( *check )( const GSkinOptions& options ) )
{
    GTimeSetSource( nullptr );
    window.getInstance( )->set( u"Skin_Reload", 1 );
    GSkinPreviewPrepare( options, window );
    const Shower shower( options, check );
    bool quit = false;
    while( GWinUpdate( quit ) )
    {
    }
    return 0;
}
