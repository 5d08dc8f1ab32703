// The tray icon with a real tray host, before one comes and after it has gone.
#include "libvorn/src/platform/tray/GIcon_Qt.h"
#include "system/desktop/OnDesktop.h"

#include <QTextDocument>
#include <QToolTip>

#include <set>

namespace
{
class TrayOnDesktop : public OnDesktop
{
protected:
    void SetUp( ) override
    {
        OnDesktop::SetUp( );
        host = startTray( );
        EXPECT_TRUE( awaitTray( true ) );
        icon = GIconOpen( &listener );
    }
    void TearDown( ) override
    {
        if( icon ) GIconClose( icon );
        host.reset( );
        EXPECT_TRUE( awaitTray( false ) );
        OnDesktop::TearDown( );
    }
    // Where the host put it; empty while it did not.
    QRect place( ) const { return icon->geometry( ); }
    bool isThere( )
    {
        QRect last;
        int same = 0; // The host moves things about as it comes up.
        return pumpUntil(
            [&]( )
            {
                const QRect rect = place( );
                const bool good = rect == last && rect.width( ) >= 16 && rect.top( ) > 700 && !picture( ).empty( );
                same = good ? same + 1 : 0;
                last = rect;
                return same >= 10;
            } );
    }
    // The colours in its place; empty when there is but one.
    std::set<QRgb> picture( ) const
    {
        std::set<QRgb> colors;
        const QRect rect = place( );
        for( int x = rect.left( ); x <= rect.right( ); x += 2 )
            for( int y = rect.top( ); y <= rect.bottom( ); y += 2 ) colors.insert( pixelAt( x, y ) );
        return colors.size( ) > 1 ? colors : std::set<QRgb>{ };
    }
    void point( const QString& steps )
    {
        const QPoint middle = place( ).center( );
        drive( QStringLiteral( "mousemove %1 %2 " ).arg( middle.x( ) ).arg( middle.y( ) ) + steps );
    }

    IconListener listener;
    std::unique_ptr<Program> host;
    GIcon icon = nullptr;
};
} // namespace

TEST_F( TrayOnDesktop, EachStateHasAPictureOfItsOwn )
{
    ASSERT_TRUE( isThere( ) );
    std::set<std::set<QRgb>> pictures;
    for( int state = GIS_PUBLIC_OFFLINE; state <= GIS_PRIVATE_ONLINE; ++state )
    {
        GIconSetState( icon, state );
        EXPECT_TRUE( pumpUntil(
            [&]( )
            {
                const std::set<QRgb> now = picture( );
                return !now.empty( ) && pictures.insert( now ).second;
            } ) )
            << state;
        keepPicture( QStringLiteral( "tray_%1" ).arg( state ) );
    }
}

TEST_F( TrayOnDesktop, ClicksReachTheListener )
{
    ASSERT_TRUE( isThere( ) );
    point( QStringLiteral( "click 1" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.left == 1; } ) );
    point( QStringLiteral( "click 3" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.right == 1; } ) );
    drive( QStringLiteral( "sleep 0.6" ) );
    point( QStringLiteral( "click --repeat 2 --delay 40 1" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.twice == 1; } ) );
    EXPECT_EQ( 2, listener.left );
    EXPECT_EQ( 1, listener.right );
    EXPECT_TRUE( listener.cookies.empty( ) );
}

TEST_F( TrayOnDesktop, ToolTipIsCutTo62Characters )
{
    ASSERT_TRUE( isThere( ) );
    GIconSetText( icon, GWString( 61, u'x' ) + u"yz" );
    point( { } );
    point( QStringLiteral( "mousemove_relative 1 1" ) );
    const QString expected = QString( 61, QLatin1Char( 'x' ) ) + QLatin1Char( 'y' );
    EXPECT_TRUE( pumpUntil( [&]( ) { return QToolTip::text( ) == expected; } ) ) << QToolTip::text( ).toStdString( );
    keepPicture( QStringLiteral( "tooltip" ) );
    // A pair of units is one character: none is cut in the middle.
    GIconSetText( icon, GWString( 61, u'x' ) + u"\U0001F600" );
    EXPECT_EQ( QString( 61, QLatin1Char( 'x' ) ), icon->QSystemTrayIcon::toolTip( ) );
}

TEST_F( TrayOnDesktop, HostileToolTipIsPlainText )
{
    ASSERT_TRUE( isThere( ) );
    GIconSetText( icon, u"<b>bold</b> & <img src='x'>" );
    point( { } );
    point( QStringLiteral( "mousemove_relative 1 1" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return QToolTip::isVisible( ); } ) );
    QTextDocument shown;
    Qt::mightBeRichText( QToolTip::text( ) ) ? shown.setHtml( QToolTip::text( ) )
                                             : shown.setPlainText( QToolTip::text( ) );
    EXPECT_EQ( QStringLiteral( "<b>bold</b> & <img src='x'>" ), shown.toPlainText( ) );
    keepPicture( QStringLiteral( "tooltip_hostile" ) );
}

TEST_F( TrayOnDesktop, HostMayGoAndComeAgain )
{
    ASSERT_TRUE( isThere( ) );
    host.reset( );
    EXPECT_TRUE( awaitTray( false ) );
    // All goes on without one.
    GIconSetState( icon, GIS_PUBLIC_ONLINE );
    GIconSetText( icon, u"alone" );
    host = startTray( );
    EXPECT_TRUE( awaitTray( true ) );
    EXPECT_TRUE( isThere( ) );
    point( QStringLiteral( "click 1" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.left == 1; } ) );
}

TEST_F( TrayOnDesktop, IconMayWaitForItsHost )
{
    GIconClose( icon );
    host.reset( );
    ASSERT_TRUE( awaitTray( false ) );
    icon = GIconOpen( &listener );
    pumpAll( );
    host = startTray( );
    EXPECT_TRUE( awaitTray( true ) );
    EXPECT_TRUE( isThere( ) );
}

TEST_F( TrayOnDesktop, ClosedIconHearsNothingMore )
{
    ASSERT_TRUE( isThere( ) );
    const QPoint middle = place( ).center( );
    emit icon->activated( QSystemTrayIcon::Trigger );
    GIconClose( icon );
    icon = nullptr;
    drive( QStringLiteral( "mousemove %1 %2 click 1" ).arg( middle.x( ) ).arg( middle.y( ) ) );
    pumpAll( );
    EXPECT_EQ( 0, listener.left );
}
