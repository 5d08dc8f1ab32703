#include "platform/tray/GIcon_Qt.h"

#include "base/GPortable.h"
#include "platform/desktop/GDesktop_Qt.h"
#include "platform/tray/GTrayHost_X11.h"

#include <QCoreApplication>
#include <QFile>
#include <QGuiApplication>
#include <QPainter>
#include <QPointer>
#include <QStyleHints>
#include <QTextDocument>

namespace
{
constexpr size_t MOST_TOOL_TIP = 62;
constexpr size_t MOST_TITLE = 62;
constexpr size_t MOST_BUBBLE = 254;
constexpr int BUBBLE_MILLISECONDS = 10000;

// The mark of a state for who has no image of it: an open ring, with a stroke through it for private; hollow offline, half filled
// busy, filled online.
QPixmap drawState( int state, int size )
{
    static const QColor colors[] = { "#A3ADBB", "#F2A33A", "#4CC38A" };
    QPixmap pixmap( size, size );
    pixmap.fill( Qt::transparent );
    QPainter painter( &pixmap );
    painter.setRenderHint( QPainter::Antialiasing );
    const double width = size / 9.0;
    const QRectF ring( width, width, size - 2 * width, size - 2 * width );
    const QRectF core = ring.adjusted( 2 * width, 2 * width, -2 * width, -2 * width );
    const QColor color = colors[state % 3];
    painter.setPen( QPen( color, width ) );
    painter.drawEllipse( ring );
    painter.setBrush( color );
    painter.setPen( Qt::NoPen );
    if( state % 3 == 1 ) painter.drawPie( core, 90 * 16, 180 * 16 );
    if( state % 3 == 2 ) painter.drawEllipse( core );
    if( state >= GIS_PRIVATE_OFFLINE )
    {
        painter.setPen( QPen( color, width, Qt::SolidLine, Qt::RoundCap ) );
        painter.drawLine( ring.bottomLeft( ), ring.topRight( ) );
    }
    return pixmap;
}

QIcon loadState( int state )
{
    QIcon icon;
    for( const char* suffix : { "_16.png", "_22.png", "_24.png", "_32.png", ".png" } )
    {
        const QString path = QStringLiteral( "images/tray_%1" ).arg( state ) + QLatin1String( suffix );
        if( QFile::exists( path ) ) icon.addFile( path );
    }
    if( !icon.availableSizes( ).isEmpty( ) ) return icon;
    for( const int size : { 16, 22, 24, 32, 48 } ) icon.addPixmap( drawState( state, size ) );
    return icon;
}

// Hosts on the bus tell of each click alike.
bool isSecondClick( GIcon icon )
{
    const int interval = QGuiApplication::styleHints( )->mouseDoubleClickInterval( );
    const bool second = icon->lastClick.isValid( ) && icon->lastClick.elapsed( ) <= interval;
    second ? icon->lastClick.invalidate( ) : icon->lastClick.start( );
    return second;
}

// Listeners may open a menu or close the icon, so they run from the message loop and not within the toolkit's own handling.
void onActivated( GIcon icon, QSystemTrayIcon::ActivationReason reason )
{
    if( reason == QSystemTrayIcon::Trigger && isSecondClick( icon ) ) reason = QSystemTrayIcon::DoubleClick;
    if( reason == QSystemTrayIcon::DoubleClick ) icon->lastClick.invalidate( );
    const QPointer<QSystemTrayIcon> guard( icon );
    GDesktopPost(
        [guard, icon, reason]( )
        {
            if( !guard ) return;
            if( reason == QSystemTrayIcon::Trigger ) icon->listener->onLButtonDown( icon );
            if( reason == QSystemTrayIcon::DoubleClick ) icon->listener->onLButtonDblClk( icon );
            if( reason == QSystemTrayIcon::Context ) icon->listener->onRButtonDown( icon );
        } );
}

void onBalloonClicked( GIcon icon )
{
    const QPointer<QSystemTrayIcon> guard( icon );
    GDesktopPost(
        [guard, icon]( )
        {
            if( guard ) icon->listener->onBubbleClick( icon, icon->cookie );
        } );
}

// No half of a pair at the end.
QString cutText( const GWString& text, size_t most )
{
    GWString cut = text.substr( 0, most );
    if( cut.size( ) < text.size( ) && !cut.empty( ) && QChar::isHighSurrogate( cut.back( ) ) ) cut.pop_back( );
    return GDesktopText( cut );
}
} // namespace

GIconRecord::GIconRecord( IGIconListener* listener_ ) : listener( listener_ )
{
    for( int state = GIS_PUBLIC_OFFLINE; state <= GIS_PRIVATE_ONLINE; ++state ) icons[state] = loadState( state );
    setIcon( icons[current] );
    QObject::connect( this, &QSystemTrayIcon::activated, this,
                      [this]( QSystemTrayIcon::ActivationReason reason ) { onActivated( this, reason ); } );
    QObject::connect( this, &QSystemTrayIcon::messageClicked, this, [this]( ) { onBalloonClicked( this ); } );
    balloon.onClick = [this]( ) { onBalloonClicked( this ); };
    balloon.onRefused = [this]( const QString& title, const QString& text, int milliseconds )
    {
        if( GTrayHostIsThere( ) )
            showMessage( title, text, QSystemTrayIcon::Information, milliseconds );
        else
            window.show( title, text, milliseconds );
        GDesktopFlush( );
    };
    window.onClick = balloon.onClick;
}

GIcon GIconOpen( IGIconListener* listener )
{
    GCALL( function );
    GPRECONDITION( listener );
    GDesktopOpen( );
    auto* icon = new GIconRecord( listener );
    icon->show( );
    GDesktopFlush( );
    return icon;
}

void GIconClose( GIcon icon )
{
    GCALL( function );
    GPRECONDITION( icon );
    if( !QCoreApplication::instance( ) ) return; // The desktop is gone, and the icon with it.
    icon->hide( );
    delete icon;
}

void GIconSetState( GIcon icon, int state )
{
    GCALL( function );
    GPRECONDITION( icon );
    GASSERT( GWITHIN( GIS_PUBLIC_OFFLINE, state, GIS_PRIVATE_ONLINE ) );
    if( GDesktopIsDown( ) || icon->current == state ) return;
    icon->current = state;
    icon->setIcon( icon->icons[state] );
    GDesktopFlush( );
}

void GIconSetText( GIcon icon, const GWString& text )
{
    GPRECONDITION( icon );
    if( GDesktopIsDown( ) || icon->toolTip == text ) return;
    icon->toolTip = text;
    const QString shown = cutText( text, MOST_TOOL_TIP );
    // The toolkit takes what looks like markup for it.
    icon->setToolTip( Qt::mightBeRichText( shown ) ? Qt::convertFromPlainText( shown ) : shown );
}

void GIconSetBubble( GIcon icon, const GWString& title, const GWString& text, int cookie )
{
    GCALL( function );
    GPRECONDITION( icon );
    if( GDesktopIsDown( ) || icon->bubble == text ) return;
    icon->bubble = text;
    icon->cookie = cookie;
    icon->balloon.show( cutText( title, MOST_TITLE ), cutText( text, MOST_BUBBLE ), BUBBLE_MILLISECONDS );
}

bool GIconHasHost( )
{
    GDesktopOpen( );
    return GTrayHostIsThere( );
}
