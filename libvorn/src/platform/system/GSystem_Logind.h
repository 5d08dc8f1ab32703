// Hears the session manager's word before sleep and after it (org.freedesktop.login1) and hands it to the system listeners. Holds
// the machine's sleep up for two seconds after that word, so that what the listeners begin gets on its way. User-interface thread.
#pragma once

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QTimer>

class GSleepWatch : public QObject
{
    Q_OBJECT

public:
    // Without a bus, or without a session manager on it, nothing is announced.
    GSleepWatch( const QDBusConnection& bus, QObject* parent );

public slots:
    void onPrepareForSleep( bool before );

private:
    void _hold( );
    void _letGo( );

    QDBusConnection _bus;
    QDBusUnixFileDescriptor _delay; // Sleep waits for as long as it is open.
    QTimer _letGoTimer;
    bool _before = false;
};
// Begins to listen on the system's bus; ends with the desktop.
void GSleepWatchOpen( );
