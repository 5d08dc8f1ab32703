// The checks, the layout and the choice of windows: the same for every backend.
#include "platform/GScreen.h"

#include "base/GPortable.h"
#include "platform/common/GScreenBackend.h"

struct GScreenRecord
{
    std::unique_ptr<IGScreenBackend> backend;
    std::vector<GScreenWindow> windows; // Kept for its room.
};

namespace
{
constexpr size_t MOST_WINDOWS = 1024;
constexpr size_t MOST_CHILDREN = 63; // Each can leave the rest of its window in more pieces.
constexpr size_t MOST_TITLE_UNITS = 256;
constexpr char16_t DESKTOP_TITLE[] = u"Program Manager";

bool isOnScreen( const GRect& rect, int width, int height )
{
    return GRectHasVolume( rect ) && GRectHasVolume( GRectIntersect( rect, { 0, 0, width, height } ) );
}

void addRegions( const GScreenWindow& window, GFragList& regions )
{
    const GRect whole = { 0, 0, window.rect.width( ), window.rect.height( ) };
    size_t added = 0;
    for( const GRect& child : window.children )
    {
        const GRect clipped = GRectIntersect( child, whole );
        if( GRectEmpty( child ) || GRectEmpty( clipped ) ) continue;
        GFragAddUnder( regions, { window.id, clipped } );
        if( ++added == MOST_CHILDREN ) break;
    }
    GFragAddUnder( regions, { window.id, whole } );
}

bool isControl( char16_t unit )
{
    return unit < 0x20 || ( unit >= 0x7F && unit < 0xA0 );
}

GWString makeTitle( const GWString& raw )
{
    GWString title;
    for( const char16_t unit : raw )
    {
        if( isControl( unit ) ) continue;
        if( title.size( ) == MOST_TITLE_UNITS ) break;
        title += unit;
    }
    // Half a pair is no character.
    if( !title.empty( ) && ( title.back( ) & 0xFC00 ) == 0xD800 ) title.pop_back( );
    return title;
}
} // namespace

GScreen GScreenOpen( )
{
    return new GScreenRecord{ GScreenBackendOpen( ), {} };
}

void GScreenClose( GScreen screen )
{
    GVALIDPTR( screen );
    delete screen;
}

const char* GScreenCapture( GScreen screen, const GRect& dirtyRect_, GImageFormat& format )
{
    GPRECONDITION( GVALIDRECT( dirtyRect_ ) );
    GVALIDPTR( screen );
    const char* buffer = screen->backend->capture( dirtyRect_, format );
    if( !buffer ) format = { };
    return buffer;
}

bool GScreenGetDamage( GScreen screen, std::vector<GRect>& rects )
{
    GVALIDPTR( screen );
    const bool told = screen->backend->getDamage( rects );
    if( !told ) rects.clear( );
    return told;
}

bool GScreenWaitForDamage( GScreen screen, int64_t microseconds )
{
    GVALIDPTR( screen );
    return screen->backend->waitForDamage( microseconds );
}

void GScreenGetLayout( GScreen screen, GFragList& windowList, std::map<uint32_t, GFragList>& windowFragMap )
{
    GVALIDPTR( screen );
    windowList.clear( );
    windowFragMap.clear( );
    int width = 0;
    int height = 0;
    screen->windows.clear( );
    if( !screen->backend->getWindows( width, height, screen->windows ) ) return;
    for( const GScreenWindow& window : screen->windows )
    {
        if( !isOnScreen( window.rect, width, height ) ) continue;
        if( windowList.size( ) == MOST_WINDOWS ) break;
        windowList.push_back( { window.id, window.rect } );
        addRegions( window, windowFragMap[window.id] );
    }
}

void GScreenGetWindowList( std::map<uint32_t, GWString>* windowIDNameMap )
{
    GPRECONDITION( windowIDNameMap );
    windowIDNameMap->clear( );
    int width = 0;
    int height = 0;
    std::vector<GScreenTitle> titles;
    if( !GScreenBackendGetTitles( width, height, titles ) ) return;
    for( const GScreenTitle& window : titles )
    {
        if( window.isDesktop || !isOnScreen( window.rect, width, height ) ) continue;
        const GWString title = makeTitle( window.title );
        if( title.empty( ) || title == DESKTOP_TITLE ) continue;
        if( windowIDNameMap->size( ) == MOST_WINDOWS ) break;
        windowIDNameMap->emplace( window.id, title );
    }
}

bool GScreenRaiseWindow( uint32_t windowID )
{
    return windowID != 0 && GScreenBackendRaise( windowID );
}

bool GScreenGetPointerPosition( int& x, int& y )
{
    return GScreenBackendGetPointer( x, y );
}

bool GScreenSetPointerPosition( int x, int y )
{
    return GScreenBackendSetPointer( x, y );
}
