// A balloon in the corner of the screen, for desktops that have neither a notification service nor a tray. User-interface thread.
#pragma once

#include <QFrame>

#include <functional>

class QLabel;

class GBalloonWindow : public QFrame
{
public:
    GBalloonWindow( );
    // Plain text; takes the place of what it showed before.
    void show( const QString& title, const QString& text, int milliseconds );
    std::function<void( )> onClick;

protected:
    void mousePressEvent( QMouseEvent* event ) override;
    void timerEvent( QTimerEvent* event ) override;

private:
    void _end( );

    QLabel* _title;
    QLabel* _text;
    int _timer = 0;
};
