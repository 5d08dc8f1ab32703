// The least that a program on the toolkit can be: one window of one colour. What starting the client is measured by.
#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>

namespace
{
class Window : public QRasterWindow
{
protected:
    void paintEvent( QPaintEvent* ) override
    {
        QPainter painter( this );
        painter.fillRect( 0, 0, width( ), height( ), Qt::darkCyan );
    }
};
} // namespace

int main( int argc, char** argv )
{
    QGuiApplication application( argc, argv );
    Window window;
    window.resize( 320, 400 );
    window.show( );
    return QGuiApplication::exec( );
}
