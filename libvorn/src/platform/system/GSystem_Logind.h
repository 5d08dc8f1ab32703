// Hears the session manager's word before sleep and after it, and hands it to the system listeners.
#pragma once

#include <QObject>

class GSleepWatch : public QObject
{
    Q_OBJECT

public:
    explicit GSleepWatch( QObject* parent ) : QObject( parent ) {}

public slots:
    void onPrepareForSleep( bool before );
};
// Begins to listen; ends with the desktop.
void GSleepWatchOpen( );
