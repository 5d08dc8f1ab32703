#include "platform/tray/GBalloon_DBus.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

namespace
{
const QString SERVICE = QStringLiteral( "org.freedesktop.Notifications" );
const QString PATH = QStringLiteral( "/org/freedesktop/Notifications" );
// The action of a click on the balloon itself.
const QString CLICK = QStringLiteral( "default" );
// A service may have to be started first; one that takes longer than this is as good as none.
constexpr int ANSWER_MILLISECONDS = 3000;
constexpr uchar NORMAL_URGENCY = 1;

QDBusMessage makeCall( const QString& method, const QVariantList& arguments )
{
    QDBusMessage message = QDBusMessage::createMethodCall( SERVICE, PATH, SERVICE, method );
    message.setArguments( arguments );
    return message;
}
} // namespace

GBalloon::GBalloon( ) = default;

GBalloon::~GBalloon( )
{
    if( _standing ) _bus->send( makeCall( QStringLiteral( "CloseNotification" ), { _standing } ) );
}

void GBalloon::show( const QString& title, const QString& text, int milliseconds )
{
    _wanted = { title, text, milliseconds };
    _newer = _busy;
    if( !_busy ) _askAbilities( );
}

void GBalloon::_openBus( )
{
    _bus = QDBusConnection::sessionBus( );
    // Only signals of the service's owner count.
    _bus->connect( SERVICE, PATH, SERVICE, QStringLiteral( "ActionInvoked" ), this,
                   SLOT( onActionInvoked( uint, QString ) ) );
    _bus->connect( SERVICE, PATH, SERVICE, QStringLiteral( "NotificationClosed" ), this,
                   SLOT( onNotificationClosed( uint, uint ) ) );
}

void GBalloon::_call( const QString& method, const QVariantList& arguments, Answer answer )
{
    auto* watcher =
        new QDBusPendingCallWatcher( _bus->asyncCall( makeCall( method, arguments ), ANSWER_MILLISECONDS ), this );
    QObject::connect( watcher, &QDBusPendingCallWatcher::finished, this,
                      [this, answer]( QDBusPendingCallWatcher* call )
                      {
                          call->deleteLater( );
                          ( this->*answer )( *call );
                      } );
}

// Asked anew for each balloon: the service may be another one by now.
void GBalloon::_askAbilities( )
{
    _newer = false;
    if( !_bus ) _openBus( );
    if( !_bus->isConnected( ) ) return _refuse( );
    _busy = true;
    _call( QStringLiteral( "GetCapabilities" ), { }, &GBalloon::_onAbilities );
}

void GBalloon::_onAbilities( const QDBusPendingCallWatcher& call )
{
    const QDBusPendingReply<QStringList> reply = call;
    _busy = false;
    if( _newer ) return _askAbilities( );
    if( reply.isError( ) || !reply.value( ).contains( QStringLiteral( "actions" ) ) ) return _refuse( );
    const bool markup = reply.value( ).contains( QStringLiteral( "body-markup" ) );
    _busy = true;
    _call( QStringLiteral( "Notify" ),
           { QStringLiteral( "Velmora" ), _standing, QStringLiteral( "dialog-information" ), _wanted.title,
             markup ? _wanted.text.toHtmlEscaped( ) : _wanted.text, QStringList{ CLICK, QString( ) },
             QVariantMap{ { QStringLiteral( "urgency" ), QVariant::fromValue( NORMAL_URGENCY ) } },
             _wanted.milliseconds },
           &GBalloon::_onShown );
}

void GBalloon::_onShown( const QDBusPendingCallWatcher& call )
{
    const QDBusPendingReply<uint> reply = call;
    _busy = false;
    if( !reply.isError( ) ) _clickable = _standing = reply.value( );
    if( _newer ) return _askAbilities( );
    if( reply.isError( ) ) _refuse( );
}

void GBalloon::_refuse( )
{
    if( onRefused ) onRefused( _wanted.title, _wanted.text, _wanted.milliseconds );
}

void GBalloon::onActionInvoked( uint id, const QString& action )
{
    if( !id || id != _clickable || action != CLICK ) return;
    _clickable = 0;
    if( onClick ) onClick( );
}

// The click may be told after the end.
void GBalloon::onNotificationClosed( uint id, uint )
{
    if( id == _standing ) _standing = 0;
}
