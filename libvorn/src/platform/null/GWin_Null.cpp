// Windows that remember where they are and show nothing; the pump delivers notifications and timers.
#include "base/GPortable.h"
#include "platform/GThread.h"
#include "platform/GWin.h"
#include "platform/null/GNotify_Null.h"

#include <mutex>
#include <optional>

struct GWinRecord
{
    GRect rect;
    bool visible = false;
    bool maximized = false;
    bool minimized = false;
};

namespace
{
constexpr int64_t IDLE_PAUSE = 1000;
constexpr GRect WORK_AREA = { 0, 0, 1024, 768 };

std::mutex quitMutex_;
std::optional<int> quit_;
} // namespace

GWin GWinOpen( const GWString&, const GRect& rect, bool, IGWinListener* listener )
{
    GPRECONDITION( listener );
    return new GWinRecord{ rect };
}
void GWinClose( GWin win )
{
    GVALIDPTR( win );
    delete win;
}
void GWinShow( GWin win )
{
    win->visible = true;
}
void GWinHide( GWin win )
{
    win->visible = false;
}
void GWinMinimize( GWin win )
{
    win->minimized = true;
}
void GWinMaximize( GWin win )
{
    win->maximized = true;
    win->minimized = false;
}
void GWinRestore( GWin win )
{
    win->maximized = false;
    win->minimized = false;
}
bool GWinIsMaximized( GWin win )
{
    return win->maximized;
}
bool GWinIsMinimized( GWin win )
{
    return win->minimized;
}
bool GWinIsVisible( GWin win )
{
    return win->visible;
}
bool GWinHasKeyFocus( GWin )
{
    return false;
}
void GWinSetForeground( GWin ) {}
void GWinMove( GWin win, const GRect& rect )
{
    win->rect = rect;
}
void GWinMouseCapture( GWin ) {}
void GWinMouseRelease( GWin ) {}
void GWinGetScreenPosition( GWin win, GRect& rect )
{
    rect = win->rect;
}
void GWinFlash( GWin ) {}
void GWinRepaint( GWin, int, int, const char*, int ) {}
void GWinRepaintPart( GWin, int, int, const char*, int, const GRect& ) {}
void GWinSetTitle( GWin, const GWString& ) {}
void GWinWhenShown( std::function<void( )> task )
{
    task( );
}

// One pass, so that a test can pump as often as it likes; true until a quit message was posted.
bool GWinUpdate( bool& quit )
{
    const bool notified = GNotifyDeliver( );
    const bool ticked = GTimerDeliver( );
    {
        const std::scoped_lock lock( quitMutex_ );
        if( quit_ )
        {
            quit = *quit_ != 0;
            quit_.reset( );
            return false;
        }
    }
    if( !notified && !ticked ) GThreadSleep( IDLE_PAUSE );
    return true;
}
void GWinPostQuit( int parameter )
{
    const std::scoped_lock lock( quitMutex_ );
    quit_ = parameter;
}
GRect GWinGetWorkArea( int, int )
{
    return WORK_AREA;
}
bool GWinIsAnyShown( )
{
    return true;
}
double GWinGetScale( )
{
    return 1.0;
}
void GWinFollowScale( std::function<void( )> ) {}
