#include "platform/system/GSystem_Logind.h"

#include "base/GPortable.h"
#include "platform/desktop/GDesktop_Qt.h"
#include "platform/input/GHotkey.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace
{
const QString SERVICE = QStringLiteral( "org.freedesktop.login1" );
const QString PATH = QStringLiteral( "/org/freedesktop/login1" );
const QString INTERFACE = QStringLiteral( "org.freedesktop.login1.Manager" );
constexpr int ANSWER_MILLISECONDS = 3000;
constexpr int LET_GO_MILLISECONDS = 2000;
} // namespace

GSleepWatch::GSleepWatch( const QDBusConnection& bus, QObject* parent ) : QObject( parent ), _bus( bus )
{
    _letGoTimer.setSingleShot( true );
    _letGoTimer.setInterval( LET_GO_MILLISECONDS );
    QObject::connect( &_letGoTimer, &QTimer::timeout, this, [this]( ) { _letGo( ); } );
    if( !_bus.isConnected( ) )
    {
        GLOGIF( 'w', u"There is no system bus, suspend and resume will not be seen." );
        return;
    }
    // Only the owner of the name is heard.
    _bus.connect( SERVICE, PATH, INTERFACE, QStringLiteral( "PrepareForSleep" ), this,
                  SLOT( onPrepareForSleep( bool ) ) );
    _hold( );
}

void GSleepWatch::onPrepareForSleep( bool before )
{
    _before = before;
    if( GDesktopIsDown( ) ) return _letGo( );
    if( before )
    {
        GLOGIF( 'w', u"PBT_APMSUSPEND" );
        GSystemTellSuspend( );
        _letGoTimer.start( );
        return;
    }
    _letGo( );
    GLOGIF( 'w', u"PBT_APMRESUMESUSPEND" );
    GSystemTellResume( );
    _hold( );
}

void GSleepWatch::_hold( )
{
    if( !_bus.isConnected( ) ) return;
    QDBusMessage call = QDBusMessage::createMethodCall( SERVICE, PATH, INTERFACE, QStringLiteral( "Inhibit" ) );
    call.setArguments( { QStringLiteral( "sleep" ), QStringLiteral( "Velmora" ), QStringLiteral( "Leaves the line" ),
                         QStringLiteral( "delay" ) } );
    // Nobody is to be started for this.
    call.setAutoStartService( false );
    auto* watcher = new QDBusPendingCallWatcher( _bus.asyncCall( call, ANSWER_MILLISECONDS ), this );
    QObject::connect( watcher, &QDBusPendingCallWatcher::finished, this,
                      [this]( QDBusPendingCallWatcher* done )
                      {
                          done->deleteLater( );
                          const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *done;
                          const bool wanted = !_before || _letGoTimer.isActive( );
                          if( wanted && !reply.isError( ) ) _delay = reply.value( );
                      } );
}

void GSleepWatch::_letGo( )
{
    _letGoTimer.stop( );
    _delay = QDBusUnixFileDescriptor( );
}

void GSleepWatchOpen( )
{
    new GSleepWatch( QDBusConnection::systemBus( ), GDesktopGetHidden( ) );
}
