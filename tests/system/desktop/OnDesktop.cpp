#include "system/desktop/OnDesktop.h"

#include "libvorn/src/platform/window/GWin_Qt.h"

#include <QGuiApplication>
#include <QScreen>

#include <cstdlib>

Program::Program( const QString& command )
{
    _process.setProcessChannelMode( QProcess::ForwardedErrorChannel );
    _process.setStandardOutputFile( QProcess::nullDevice( ) );
    _process.startCommand( command );
    EXPECT_TRUE( _process.waitForStarted( ) ) << command.toStdString( );
}

Program::~Program( )
{
    stop( );
}

void Program::stop( )
{
    if( !isRunning( ) ) return;
    _process.terminate( );
    if( !_process.waitForFinished( 5000 ) ) _process.kill( );
    _process.waitForFinished( );
}

bool Program::isRunning( ) const
{
    return _process.state( ) != QProcess::NotRunning;
}

// The next test finds the pointer out of the way.
void OnDesktop::TearDown( )
{
    drive( QStringLiteral( "mousemove 1270 10" ) );
}

QByteArray OnDesktop::run( const QString& command )
{
    QProcess process;
    process.setProcessChannelMode( QProcess::ForwardedErrorChannel );
    process.startCommand( command );
    EXPECT_TRUE( pumpUntil( [&]( ) { return process.state( ) == QProcess::NotRunning; } ) ) << command.toStdString( );
    return process.readAll( );
}

QRgb OnDesktop::pixelAt( int x, int y )
{
    return QGuiApplication::primaryScreen( )->grabWindow( 0, x, y, 1, 1 ).toImage( ).pixel( 0, 0 ) & 0xFFFFFF;
}

bool OnDesktop::isNear( QRgb a, QRgb b )
{
    constexpr int MOST = 3;
    return std::abs( qRed( a ) - qRed( b ) ) <= MOST && std::abs( qGreen( a ) - qGreen( b ) ) <= MOST &&
           std::abs( qBlue( a ) - qBlue( b ) ) <= MOST;
}

GString OnDesktop::plain( int width, int height, const char ( &pixel )[5] )
{
    GString pixels;
    for( int i = 0; i < width * height; ++i ) pixels.append( pixel, 4 );
    return pixels;
}

QByteArray OnDesktop::property( GWin win, const QString& name )
{
    return run( QStringLiteral( "xprop -id %1 %2" ).arg( win->winId( ) ).arg( name ) );
}

bool OnDesktop::awaitCompositor( bool there )
{
    return pumpUntil( [=]( ) { return GWinIsComposited( ) == there; } );
}

std::unique_ptr<Program> OnDesktop::startCompositor( )
{
    return std::make_unique<Program>( QStringLiteral( "picom --config /dev/null --backend xrender" ) );
}

std::unique_ptr<Program> OnDesktop::startTray( )
{
    return std::make_unique<Program>(
        QStringLiteral( "trayer --edge bottom --align right --widthtype request --height 24" ) );
}

void OnDesktop::keepPicture( const QString& name )
{
    const char* folder = std::getenv( "VELMORA_TEST_PICTURES" );
    if( !folder || !*folder ) return;
    QGuiApplication::primaryScreen( )->grabWindow( 0 ).save( QString::fromUtf8( folder ) + QLatin1Char( '/' ) + name +
                                                             QStringLiteral( ".png" ) );
}
