// Suspend and resume, as the session manager announces them on the system bus. Without it nothing is announced.
#include "platform/system/GSystem_Logind.h"

#include "base/GPortable.h"
#include "platform/desktop/GDesktop_Qt.h"
#include "platform/input/GHotkey.h"

#include <QDBusConnection>

void GSleepWatch::onPrepareForSleep( bool before )
{
    if( GDesktopIsDown( ) ) return;
    if( before )
    {
        GLOGIF( 'w', u"PBT_APMSUSPEND" );
        GSystemTellSuspend( );
        return;
    }
    GLOGIF( 'w', u"PBT_APMRESUMESUSPEND" );
    GSystemTellResume( );
}

void GSleepWatchOpen( )
{
    QDBusConnection bus = QDBusConnection::systemBus( );
    if( !bus.isConnected( ) )
    {
        GLOGIF( 'w', u"There is no system bus, suspend and resume will not be seen." );
        return;
    }
    auto* watch = new GSleepWatch( GDesktopGetHidden( ) );
    bus.connect( QStringLiteral( "org.freedesktop.login1" ), QStringLiteral( "/org/freedesktop/login1" ),
                 QStringLiteral( "org.freedesktop.login1.Manager" ), QStringLiteral( "PrepareForSleep" ), watch,
                 SLOT( onPrepareForSleep( bool ) ) );
}
