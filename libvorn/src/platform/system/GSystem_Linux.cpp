#include "platform/GSystem.h"

#include "base/GUtil.h"
#include "platform/desktop/GDesktop_Qt.h"
#include "platform/input/GHotkey.h"

#include <QGuiApplication>
#include <QLocale>
#include <QScreen>
#include <QSysInfo>

#include <algorithm>
#include <list>
#include <sys/sysinfo.h>

namespace
{
std::list<IGSystemListener*> listeners_;

// Calls each listener that is still registered when its turn comes.
template <typename Call>
void tellAll( Call call )
{
    const std::list<IGSystemListener*> listeners = listeners_;
    for( IGSystemListener* listener : listeners )
        if( std::find( listeners_.begin( ), listeners_.end( ), listener ) != listeners_.end( ) ) call( *listener );
}

// The highest clock among the processors, in MHz; 0 when the kernel does not tell.
int64_t getProcessorClock( )
{
    GString text;
    if( GFileLoad( u"/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", text ) ) return GCalc( text ) / 1000;
    if( !GFileLoad( u"/proc/cpuinfo", text ) ) return 0;
    const size_t name = text.find( "cpu MHz" );
    const size_t colon = name == GString::npos ? name : text.find( ':', name );
    return colon == GString::npos ? 0
                                  : GCalc( GTrim( GUTF8ToWide( std::string_view( text ).substr( colon + 1, 16 ) ) ) );
}

int64_t getMemory( )
{
    struct sysinfo info = { };
    return sysinfo( &info ) ? 0 : static_cast<int64_t>( info.totalram ) * info.mem_unit / ( 1024 * 1024 );
}

GWString describeScreen( )
{
    const QScreen* screen = QGuiApplication::primaryScreen( );
    if( !screen ) return u"screen=(0x0px, 0x0mm), bpp=0";
    const QSize pixels = screen->size( );
    const QSizeF size = screen->physicalSize( );
    return GConcat( u"screen=(", pixels.width( ), u"x", pixels.height( ), u"px, ",
                    static_cast<int64_t>( size.width( ) ), u"x", static_cast<int64_t>( size.height( ) ), u"mm), bpp=",
                    screen->depth( ) );
}
} // namespace

void GSystemRegisterListener( IGSystemListener* listener )
{
    GPRECONDITION( listener );
    listeners_.push_back( listener );
}

void GSystemResignListener( IGSystemListener* listener )
{
    GPRECONDITION( listener );
    listeners_.remove( listener );
}

void GSystemTellSuspend( )
{
    tellAll( []( IGSystemListener& listener ) { listener.onSuspend( ); } );
}

void GSystemTellResume( )
{
    tellAll( []( IGSystemListener& listener ) { listener.onResume( ); } );
}

void GSystemTellHotkey( GHotkey hotkey, const GWString& name, bool down )
{
    tellAll( [&]( IGSystemListener& listener )
             { down ? listener.onHotkeyDown( hotkey, name ) : listener.onHotkeyUp( hotkey, name ); } );
}

GWString GSystemGetInfo( )
{
    GDesktopOpen( );
    const QLocale locale = QLocale::system( );
    const QString country = locale.name( ).section( u'_', 1, 1 );
    return GConcat( GDesktopText( QSysInfo::prettyProductName( ) ), u", ", GDesktopText( QSysInfo::kernelType( ) ),
                    u" ", GDesktopText( QSysInfo::kernelVersion( ) ), u", Qt ", qVersion( ), u" ",
                    GDesktopText( QGuiApplication::platformName( ) ), u", language=",
                    GDesktopText( locale.name( ).section( u'_', 0, 0 ) ), u", CPU=", getProcessorClock( ), u"Mhz, RAM=",
                    getMemory( ), u"MB, numMonitors=", static_cast<int64_t>( QGuiApplication::screens( ).size( ) ),
                    u", ", describeScreen( ), u", country=", GDesktopText( country ) );
}
