// The desktop's scale: a text that the X server keeps for all programs, asked for once and again when it has changed.
#include "base/GTypes.h"
#include "platform/GWin.h"
#include "platform/desktop/GDesktop_Qt.h"
#include "platform/input/GXcb.h"

#include <QAbstractNativeEventFilter>
#include <QCoreApplication>
#include <QPointer>

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <xcb/xcb.h>

namespace
{
constexpr double LEAST_SCALE = 0.5;
constexpr double MOST_SCALE = 4.0;

// The dots an inch that the user has set for the desktop; 0 when he has not.
double getDotsPerInch( )
{
    const GString resources = GXcbGetRootText( XCB_ATOM_RESOURCE_MANAGER );
    constexpr std::string_view NAME = "Xft.dpi:";
    size_t line = 0;
    while( line < resources.size( ) )
    {
        if( std::string_view( resources ).substr( line ).starts_with( NAME ) )
            return std::strtod( resources.c_str( ) + line + NAME.size( ), nullptr );
        const size_t end = resources.find( '\n', line );
        if( end == GString::npos ) break;
        line = end + 1;
    }
    return 0;
}

std::function<void( )> onChange_;

// Hears of it on the toolkit's connection, which listens to the root window anyway.
class Watch : public QObject, public QAbstractNativeEventFilter
{
public:
    explicit Watch( QObject* parent ) : QObject( parent )
    {
        QCoreApplication::instance( )->installNativeEventFilter( this );
    }

    double getDots( )
    {
        if( _stale ) _dots = getDotsPerInch( );
        _stale = false;
        return _dots;
    }

private:
    bool nativeEventFilter( const QByteArray&, void* message, qintptr* ) override
    {
        const auto* event = static_cast<const xcb_property_notify_event_t*>( message );
        if( ( event->response_type & 0x7F ) != XCB_PROPERTY_NOTIFY || event->atom != XCB_ATOM_RESOURCE_MANAGER )
            return false;
        const double before = GWinGetScale( );
        _stale = true;
        if( GWinGetScale( ) != before && onChange_ ) onChange_( );
        return false;
    }

    double _dots = 0;
    bool _stale = true;
};

double getKnownDotsPerInch( )
{
    static QPointer<Watch> watch;
    if( !GDesktopGetConnection( ) ) return 0;
    if( !watch ) watch = new Watch( GDesktopGetHidden( ) );
    return watch->getDots( );
}
} // namespace

double GWinGetScale( )
{
    constexpr double PLAIN = 96;
    const char* wanted = std::getenv( "VELMORA_SCALE" );
    double scale = wanted ? std::strtod( wanted, nullptr ) : 0;
    if( !( scale > 0 ) ) scale = getKnownDotsPerInch( ) / PLAIN;
    return scale > 0 ? std::clamp( scale, LEAST_SCALE, MOST_SCALE ) : 1.0;
}

void GWinFollowScale( std::function<void( )> onChange )
{
    onChange_ = std::move( onChange );
    GWinGetScale( ); // Changes are told from here on.
}
