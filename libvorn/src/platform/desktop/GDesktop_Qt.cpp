#include "platform/desktop/GDesktop_Qt.h"

#include "base/GForeignText.h"
#include "base/GPortable.h"

#include <QApplication>
#include <QEvent>
#include <QFile>
#include <QIcon>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <xcb/xcb.h>

namespace
{
class Task : public QEvent
{
public:
    explicit Task( std::function<void( )> task_ ) : QEvent( QEvent::User ), task( std::move( task_ ) ) {}
    const std::function<void( )> task;
};
class Hidden : public QObject
{
protected:
    bool event( QEvent* event ) override
    {
        if( event->type( ) != QEvent::User ) return QObject::event( event );
        if( !GDesktopIsDown( ) ) static_cast<Task*>( event )->task( );
        return true;
    }
};

constexpr int TICK_MILLISECONDS = 100;
constexpr int PATIENCE_MILLISECONDS = 500;

QGuiApplication* application_ = nullptr;
std::atomic<bool> down_ = false;
std::mutex hiddenMutex_; // Held while posting, so that the hidden object can't go meanwhile.
Hidden* hidden_ = nullptr;
QTimer* ticking_ = nullptr;
std::vector<bool ( * )( )> ticks_;
bool shown_ = false; // A window was, or nobody waits for one any longer.
std::vector<std::function<void( )>> waiting_;

// The toolkit keeps references to both.
int argumentCount_ = 1;
char argument_[] = "velmora";
char* arguments_[] = { argument_, nullptr };

bool hasText( const char* variable )
{
    const char* value = std::getenv( variable );
    return value && *value;
}

void requireDisplay( )
{
    const char* platform = std::getenv( "QT_QPA_PLATFORM" );
    if( platform && *platform && !QByteArray( platform ).startsWith( "xcb" ) ) return;
    if( hasText( "DISPLAY" ) )
    {
        // Also on other display servers: hotkeys and the screen are only to be had by way of X.
        setenv( "QT_QPA_PLATFORM", "xcb", 1 );
        int screen = 0;
        xcb_connection_t* connection = xcb_connect( nullptr, &screen );
        const bool good = !xcb_connection_has_error( connection );
        xcb_disconnect( connection );
        if( good ) return;
        std::fprintf( stderr, "There is no display: cannot connect to the X server '%s'.\n", std::getenv( "DISPLAY" ) );
    }
    else
        std::fputs( "There is no display: DISPLAY is not set. Start the program from a graphical session.\n", stderr );
    std::exit( 1 );
}

void runTicks( )
{
    if( GDesktopIsDown( ) ) return;
    // One that is called may ask for more, itself included.
    const std::vector<bool ( * )( )> due = std::exchange( ticks_, { } );
    for( bool ( *tick )( ) : due )
        if( tick( ) ) GDesktopOnTick( tick );
    if( ticks_.empty( ) ) ticking_->stop( );
}

void openHidden( )
{
    const std::scoped_lock lock( hiddenMutex_ );
    hidden_ = new Hidden;
    ticking_ = new QTimer( hidden_ );
    ticking_->setInterval( TICK_MILLISECONDS );
    QObject::connect( ticking_, &QTimer::timeout, hidden_, runTicks );
}
} // namespace

namespace
{
// The program's mark for task bars and switchers: the skin's pictures in the working directory, an empty icon without them.
QIcon loadMark( )
{
    QIcon icon;
    for( const int size : { 16, 32, 48, 64, 128, 256 } )
    {
        const QString path = QStringLiteral( "images/app_%1.png" ).arg( size );
        if( QFile::exists( path ) ) icon.addFile( path );
    }
    return icon;
}
} // namespace

void GDesktopOpen( )
{
    if( application_ ) return;
    if( !QCoreApplication::instance( ) )
    {
        // One unit is one pixel.
        setenv( "QT_ENABLE_HIGHDPI_SCALING", "0", 1 );
        requireDisplay( );
        application_ = new QApplication( argumentCount_, arguments_ );
    }
    else
        application_ = static_cast<QGuiApplication*>( QCoreApplication::instance( ) );
    application_->setQuitOnLastWindowClosed( false );
    application_->setWindowIcon( loadMark( ) );
    down_ = false;
    openHidden( );
}

void GDesktopClose( )
{
    if( !application_ ) return;
    down_ = true;
    Hidden* hidden = nullptr;
    {
        const std::scoped_lock lock( hiddenMutex_ );
        hidden = std::exchange( hidden_, nullptr );
    }
    delete hidden;
    ticks_.clear( );
    waiting_.clear( );
    QCoreApplication::sendPostedEvents( nullptr, QEvent::DeferredDelete );
    delete std::exchange( application_, nullptr );
}

bool GDesktopIsDown( )
{
    return down_ || GIsShuttingDown( );
}

void GDesktopPost( std::function<void( )> task )
{
    const std::scoped_lock lock( hiddenMutex_ );
    if( !hidden_ || GDesktopIsDown( ) ) return;
    QCoreApplication::postEvent( hidden_, new Task( std::move( task ) ) );
}

QObject* GDesktopGetHidden( )
{
    GDesktopOpen( );
    return hidden_;
}

void GDesktopOnTick( bool ( *tick )( ) )
{
    GDesktopOpen( );
    if( std::find( ticks_.begin( ), ticks_.end( ), tick ) != ticks_.end( ) ) return;
    ticks_.push_back( tick );
    if( !ticking_->isActive( ) ) ticking_->start( );
}

void GDesktopWhenShown( std::function<void( )> task )
{
    GDesktopOpen( );
    if( shown_ ) return task( );
    if( waiting_.empty( ) ) QTimer::singleShot( PATIENCE_MILLISECONDS, hidden_, GDesktopTellShown );
    waiting_.push_back( std::move( task ) );
}

void GDesktopTellShown( )
{
    if( shown_ ) return;
    shown_ = true;
    // Not within the painting.
    for( std::function<void( )>& task : waiting_ ) GDesktopPost( std::move( task ) );
    waiting_.clear( );
}

xcb_connection_t* GDesktopGetConnection( )
{
    if( !application_ ) return nullptr;
    auto* native = application_->nativeInterface<QNativeInterface::QX11Application>( );
    return native ? native->connection( ) : nullptr;
}

void GDesktopFlush( )
{
    if( xcb_connection_t* connection = GDesktopGetConnection( ) ) xcb_flush( connection );
}

QString GDesktopText( const GWString& text )
{
    if( GForeignTextIsMarked( text ) ) return QString::fromStdU16String( GForeignTextShown( text ) );
    return QString::fromUtf16( text.data( ), static_cast<qsizetype>( text.size( ) ) );
}
GWString GDesktopText( const QString& text )
{
    return text.toStdU16String( );
}
