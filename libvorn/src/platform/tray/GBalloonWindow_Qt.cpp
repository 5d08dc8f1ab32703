#include "platform/tray/GBalloonWindow_Qt.h"

#include "platform/desktop/GDesktop_Qt.h"

#include <QGuiApplication>
#include <QLabel>
#include <QMouseEvent>
#include <QScreen>
#include <QToolTip>
#include <QVBoxLayout>

namespace
{
constexpr int WIDTH = 320;
constexpr int MARGIN = 12;

QLabel* addLabel( QFrame* frame )
{
    auto* label = new QLabel( frame );
    label->setTextFormat( Qt::PlainText );
    label->setWordWrap( true );
    frame->layout( )->addWidget( label );
    return label;
}
} // namespace

GBalloonWindow::GBalloonWindow( )
    : QFrame( nullptr, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus )
{
    setAttribute( Qt::WA_ShowWithoutActivating );
    setPalette( QToolTip::palette( ) );
    setFrameShape( QFrame::Box );
    setFixedWidth( WIDTH );
    auto* column = new QVBoxLayout( this );
    column->setContentsMargins( MARGIN, MARGIN, MARGIN, MARGIN );
    _title = addLabel( this );
    QFont bold = _title->font( );
    bold.setBold( true );
    _title->setFont( bold );
    _text = addLabel( this );
}

void GBalloonWindow::show( const QString& title, const QString& text, int milliseconds )
{
    _title->setText( title );
    _text->setText( text );
    resize( WIDTH, layout( )->heightForWidth( WIDTH ) );
    if( const QScreen* screen = QGuiApplication::primaryScreen( ) )
    {
        const QRect area = screen->availableGeometry( );
        move( area.right( ) - width( ) - MARGIN, area.bottom( ) - height( ) - MARGIN );
    }
    if( _timer ) killTimer( _timer );
    _timer = startTimer( milliseconds );
    setVisible( true );
    raise( );
    GDesktopFlush( );
}

void GBalloonWindow::_end( )
{
    if( _timer ) killTimer( _timer );
    _timer = 0;
    setVisible( false );
    GDesktopFlush( );
}

void GBalloonWindow::mousePressEvent( QMouseEvent* event )
{
    _end( );
    if( event->button( ) == Qt::LeftButton && onClick ) onClick( );
}

void GBalloonWindow::timerEvent( QTimerEvent* )
{
    _end( );
}
