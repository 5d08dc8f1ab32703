// The popup menu at the pointer.
#include "base/GPortable.h"
#include "system/desktop/OnDesktop.h"

#include <QApplication>
#include <QMenu>

namespace
{
class MenuOnDesktop : public OnDesktop
{
protected:
    // Opens a menu at 400,500 and runs `steps` once it shows; what was chosen.
    int choose( const QString& steps, const QString& picture = { } )
    {
        drive( QStringLiteral( "mousemove 400 500" ) );
        QTimer opener;
        bool begun = false;
        QObject::connect( &opener, &QTimer::timeout,
                          [&]( )
                          {
                              const QWidget* menu = QApplication::activePopupWidget( );
                              // It takes the pointer and the keys before it is drawn.
                              if( begun || !menu || !isNear( pixelAt( 402, 498 ), pixelAt( 402, 497 ) ) ) return;
                              begun = true;
                              place = menu->geometry( );
                              if( !picture.isEmpty( ) ) keepPicture( picture );
                              QProcess::startDetached( QStringLiteral( "xdotool" ), steps.split( QLatin1Char( ' ' ) ) );
                          } );
        opener.start( 50 );
        const int chosen = GMenuExecute( { u"&Show Buddylist", u"&Options", u"E&xit" } );
        EXPECT_TRUE( begun );
        return chosen;
    }
    QRect place;
};
} // namespace

TEST_F( MenuOnDesktop, StandsOnThePointer )
{
    EXPECT_EQ( -1, choose( QStringLiteral( "key Escape" ), QStringLiteral( "menu" ) ) );
    EXPECT_EQ( 400, place.left( ) );
    EXPECT_EQ( 500, place.top( ) + place.height( ) );
}

TEST_F( MenuOnDesktop, MouseChooses )
{
    EXPECT_EQ( 2, choose( QStringLiteral( "mousemove 420 492 sleep 0.1 click 1" ) ) );
    EXPECT_EQ( 0, choose( QStringLiteral( "mousemove 420 %1 sleep 0.1 click 1" ).arg( place.top( ) + 8 ) ) );
}

TEST_F( MenuOnDesktop, KeysChoose )
{
    EXPECT_EQ( 1, choose( QStringLiteral( "key Down key Down key Return" ) ) );
    EXPECT_EQ( 2, choose( QStringLiteral( "key x" ) ) );
}

TEST_F( MenuOnDesktop, EscapeAndAClickOutsideChooseNothing )
{
    EXPECT_EQ( -1, choose( QStringLiteral( "key Down key Escape" ) ) );
    EXPECT_EQ( -1, choose( QStringLiteral( "mousemove 900 300 sleep 0.1 click 1" ) ) );
}

TEST_F( MenuOnDesktop, NotShownWhileShuttingDown )
{
    GSetShuttingDown( true );
    EXPECT_EQ( -1, GMenuExecute( { u"one", u"two" } ) );
    GSetShuttingDown( false );
}
