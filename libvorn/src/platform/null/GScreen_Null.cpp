// No display, or one that a test has drawn.
#include "image/GImage.h"
#include "platform/GNull.h"
#include "platform/common/GScreenBackend.h"

#include <cstring>

namespace
{
constexpr uint32_t DESKTOP_ID = 0xFFFFFFFF;

GNullScreen* screen_ = nullptr;

class Backend : public IGScreenBackend
{
public:
    const char* capture( const GRect& dirtyRect, GImageFormat& format ) override
    {
        if( screen_ ) ++screen_->captures;
        if( !screen_ || screen_->pixels.empty( ) ) return nullptr;
        if( _format != screen_->format ) _frame.assign( screen_->pixels.size( ), '\0' );
        format = _format = screen_->format;
        const GRect rect = GRectIntersect( dirtyRect, { 0, 0, format.width, format.height } );
        const size_t bytes = static_cast<size_t>( GImageBytesPerPixel( format.type ) );
        for( int y = rect.top; y < rect.bottom && GRectHasVolume( rect ); ++y )
        {
            const size_t begin =
                ( static_cast<size_t>( y ) * static_cast<size_t>( format.width ) + static_cast<size_t>( rect.left ) ) *
                bytes;
            std::memcpy( _frame.data( ) + begin, screen_->pixels.data( ) + begin,
                         static_cast<size_t>( rect.width( ) ) * bytes );
        }
        return _frame.data( );
    }
    bool getWindows( int& width, int& height, std::vector<GScreenWindow>& windows ) override
    {
        if( !screen_ ) return false;
        width = screen_->format.width;
        height = screen_->format.height;
        for( const GNullWindow& window : screen_->windows )
            windows.push_back( { window.id, window.rect, window.children } );
        windows.push_back( { DESKTOP_ID, { 0, 0, width, height }, {} } );
        return true;
    }
    bool getDamage( std::vector<GRect>& rects ) override
    {
        rects.clear( );
        if( !screen_ || !screen_->tellsDamage ) return false;
        rects.swap( screen_->damage );
        if( _damageFormat != screen_->format )
        {
            _damageFormat = screen_->format;
            rects.assign( 1, { 0, 0, _damageFormat.width, _damageFormat.height } );
        }
        return true;
    }
    // Time does not pass here.
    bool waitForDamage( int64_t ) override
    {
        return screen_ && screen_->tellsDamage && ( !screen_->damage.empty( ) || _damageFormat != screen_->format );
    }

private:
    GImageFormat _format;
    GImageFormat _damageFormat;
    GString _frame;
};
} // namespace

void GNullSetScreen( GNullScreen* screen )
{
    screen_ = screen;
}

std::unique_ptr<IGScreenBackend> GScreenBackendOpen( )
{
    return std::make_unique<Backend>( );
}

bool GScreenBackendGetTitles( int& width, int& height, std::vector<GScreenTitle>& titles )
{
    if( !screen_ ) return false;
    width = screen_->format.width;
    height = screen_->format.height;
    for( const GNullWindow& window : screen_->windows )
        titles.push_back( { window.id, window.rect, window.title, false } );
    titles.push_back( { DESKTOP_ID, { 0, 0, width, height }, u"Program Manager", false } );
    return true;
}

bool GScreenBackendRaise( uint32_t windowID )
{
    if( !screen_ ) return false;
    for( const GNullWindow& window : screen_->windows )
        if( window.id == windowID )
        {
            screen_->raised = windowID;
            return true;
        }
    return false;
}

bool GScreenBackendGetPointer( int& x, int& y )
{
    if( !screen_ ) return false;
    x = screen_->pointerX;
    y = screen_->pointerY;
    return true;
}

bool GScreenBackendSetPointer( int x, int y )
{
    if( !screen_ ) return false;
    screen_->pointerX = x;
    screen_->pointerY = y;
    return true;
}

void GScreenBackendClose( ) {}
