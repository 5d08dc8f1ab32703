// One balloon at a time by way of the desktop's notification service (org.freedesktop.Notifications, desktop notifications
// specification 1.2). Nothing here waits for the service. User-interface thread.
#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

class QDBusPendingCall;
class QDBusPendingCallWatcher;

class GBalloon : public QObject
{
    Q_OBJECT

public:
    GBalloon( );
    // Takes a balloon that still stands away.
    ~GBalloon( ) override;

    // Plain text; the service is told so in its own way. A balloon that still stands is replaced.
    void show( const QString& title, const QString& text, int milliseconds );

    // The balloon that was shown last was clicked.
    std::function<void( )> onClick;
    // There is no service, it does not answer in time, or it can't tell of clicks.
    std::function<void( const QString& title, const QString& text, int milliseconds )> onRefused;

public slots:
    void onActionInvoked( uint id, const QString& action );
    void onNotificationClosed( uint id, uint reason );

private:
    struct Balloon
    {
        QString title;
        QString text;
        int milliseconds = 0;
    };
    using Answer = void ( GBalloon::* )( const QDBusPendingCallWatcher& call );

    void _openBus( );
    void _call( const QString& method, const QVariantList& arguments, Answer answer );
    void _askAbilities( );
    void _onAbilities( const QDBusPendingCallWatcher& call );
    void _onShown( const QDBusPendingCallWatcher& call );
    void _refuse( );

    // The session's bus, once there is something to show: asking for it may start one.
    std::optional<QDBusConnection> _bus;
    bool _busy = false;  // A call is under way.
    bool _newer = false; // Another balloon came meanwhile; it waits in _wanted.
    Balloon _wanted;
    uint _clickable = 0; // The number of the last balloon.
    uint _standing = 0;  // The same while it is shown.
};
