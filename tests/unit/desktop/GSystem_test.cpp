#include "platform/GSystem.h"

#include "base/GPortable.h"
#include "base/GUtil.h"
#include "libvorn/src/platform/input/GHotkey.h"
#include "libvorn/src/platform/system/GSystem_Logind.h"
#include "platform/GIcon.h"
#include "unit/desktop/DesktopFixture.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QKeyEvent>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <regex>

namespace
{
class Listener : public IGSystemListener
{
public:
    void onSuspend( ) override { said += "suspend "; }
    void onResume( ) override
    {
        said += "resume ";
        if( resigns ) GSystemResignListener( resigns );
    }
    void onHotkeyDown( GHotkey, const GWString& name ) override { said += "down:" + GWideToUTF8( name ) + " "; }
    void onHotkeyUp( GHotkey, const GWString& name ) override { said += "up:" + GWideToUTF8( name ) + " "; }
    std::string said;
    IGSystemListener* resigns = nullptr;
};
class GSystemTest : public DesktopFixture
{
protected:
    // The number of the button that `answer` has pressed.
    static int ask( const std::function<void( QMessageBox& box )>& answer )
    {
        QTimer waker;
        QObject::connect( &waker, &QTimer::timeout, &waker,
                          [&]( )
                          {
                              auto* const box = qobject_cast<QMessageBox*>( QApplication::activeModalWidget( ) );
                              if( !box || !box->isVisible( ) ) return;
                              waker.stop( );
                              answer( *box );
                          } );
        waker.start( 1 );
        return GSystemMessageBox( u"Title", u"<b>text</b>\n\n- line", { u"Cancel", u"Try Again", u"Continue" }, 1, 0,
                                  GBOX_WARNING );
    }
};
} // namespace

TEST_F( GSystemTest, SleepReachesEveryListenerAndTheLog )
{
    Listener a;
    Listener b;
    GSystemRegisterListener( &a );
    GSystemRegisterListener( &b );
    GLogSetFilter( "w" );
    GSleepWatch watch( QDBusConnection( QStringLiteral( "no such bus" ) ), nullptr );
    watch.onPrepareForSleep( true );
    watch.onPrepareForSleep( false );
    GLogSetFilter( "" );
    EXPECT_EQ( "suspend resume ", a.said );
    EXPECT_EQ( "suspend resume ", b.said );
    EXPECT_TRUE( TestLog::contains( "PBT_APMSUSPEND" ) );
    EXPECT_TRUE( TestLog::contains( "PBT_APMRESUMESUSPEND" ) );
    GSystemResignListener( &a );
    GSystemResignListener( &b );
    watch.onPrepareForSleep( true );
    EXPECT_EQ( "suspend resume ", a.said );
}

TEST_F( GSystemTest, ListenerResignedMeanwhileIsNotCalled )
{
    Listener a;
    Listener b;
    a.resigns = &b;
    GSystemRegisterListener( &a );
    GSystemRegisterListener( &b );
    GSystemTellResume( );
    EXPECT_EQ( "resume ", a.said );
    EXPECT_EQ( "", b.said );
    GSystemResignListener( &a );
}

TEST_F( GSystemTest, UnknownHotkeyIsWarnedOf )
{
    TestLog::expect( "WARNING Unrecognzied hotkey #4711 pressed, ignoring." );
    GHotkeyOnMessage( 4711 );
}

TEST_F( GSystemTest, EmptyHotkeyTextGivesNull )
{
    EXPECT_EQ( nullptr, GSystemHotkeyOpen( u"", u"name" ) );
    EXPECT_EQ( nullptr, GSystemHotkeyOpen( u"+ +", u"name" ) );
    EXPECT_EQ( u"", GSystemGetKeysPressed( ) );
}

TEST_F( GSystemTest, InfoIsOneLineWithItsFields )
{
    const GString info = GWideToUTF8( GSystemGetInfo( ) );
    EXPECT_TRUE( std::regex_match( info, std::regex( "[^=\n]+, linux [^=\n]+, Qt 6[.0-9]+ offscreen, language=\\w*, "
                                                     "CPU=\\d+Mhz, RAM=[1-9]\\d*MB, numMonitors=[1-9]\\d*, "
                                                     "screen=\\([1-9]\\d*x[1-9]\\d*px, \\d+x\\d+mm\\), bpp=\\d+, "
                                                     "country=\\w*" ) ) )
        << info;
}

TEST_F( GSystemTest, BoxShowsItsButtonsInOrder )
{
    QStringList texts;
    QString title;
    QString text;
    QString preset;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    const int clicked = ask(
        [&]( QMessageBox& box )
        {
            title = box.windowTitle( );
            text = box.text( );
            icon = box.icon( );
            preset = box.defaultButton( )->text( );
            const QList<QAbstractButton*> buttons = box.findChild<QDialogButtonBox*>( )->buttons( );
            for( const QAbstractButton* button : buttons ) texts += button->text( );
            buttons[2]->click( );
        } );
    EXPECT_EQ( clicked, 2 );
    EXPECT_EQ( title, "Title" );
    EXPECT_EQ( text, "<b>text</b>\n\n- line" );
    EXPECT_EQ( texts, QStringList( { "Cancel", "Try Again", "Continue" } ) );
    EXPECT_EQ( preset, "Try Again" );
    EXPECT_EQ( icon, QMessageBox::Warning );
}

TEST_F( GSystemTest, BoxGivesTheDefaultOnReturnAndCancelOnEscapeAndClose )
{
    const auto press = []( QMessageBox& box, int key )
    {
        QKeyEvent event( QEvent::KeyPress, key, Qt::NoModifier );
        QCoreApplication::sendEvent( &box, &event );
    };
    EXPECT_EQ( ask( [&]( QMessageBox& box ) { press( box, Qt::Key_Return ); } ), 1 );
    EXPECT_EQ( ask( [&]( QMessageBox& box ) { press( box, Qt::Key_Escape ); } ), 0 );
    EXPECT_EQ( ask( []( QMessageBox& box ) { box.close( ); } ), 0 );
}

TEST_F( GSystemTest, MenuIsNotShownWhileShuttingDown )
{
    GSetShuttingDown( true );
    EXPECT_LT( GMenuExecute( { u"one", u"two" } ), 0 );
    GSetShuttingDown( false );
    EXPECT_LT( GMenuExecute( { } ), 0 );
}

TEST_F( GSystemTest, IconStateIsAsserted )
{
    IGIconListener listener;
    GIcon icon = GIconOpen( &listener );
    EXPECT_DEATH( GIconSetState( icon, 6 ), "GWITHIN\\( GIS_PUBLIC_OFFLINE, state, GIS_PRIVATE_ONLINE \\)" );
    GIconClose( icon );
}

TEST_F( GSystemTest, NullHandlesAbort )
{
    EXPECT_DEATH( GIconOpen( nullptr ), "listener" );
    EXPECT_DEATH( GIconClose( nullptr ), "icon" );
    EXPECT_DEATH( GIconSetText( nullptr, u"text" ), "icon" );
    EXPECT_DEATH( GIconSetBubble( nullptr, u"title", u"text", 1 ), "icon" );
    EXPECT_DEATH( GSystemHotkeyClose( nullptr ), "hotkey" );
    EXPECT_DEATH( GSystemRegisterListener( nullptr ), "listener" );
    EXPECT_DEATH( GSystemResignListener( nullptr ), "listener" );
}
