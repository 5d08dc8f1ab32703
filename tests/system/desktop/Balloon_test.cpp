// Balloons: by way of a notification service, a real one and one that the test can look into, and by the tray when there is none.
#include "libvorn/src/platform/tray/GIcon_Qt.h"
#include "system/desktop/OnDesktop.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QLabel>

namespace
{
const QString SERVICE = QStringLiteral( "org.freedesktop.Notifications" );
const QString PATH = QStringLiteral( "/org/freedesktop/Notifications" );

// A notification service that keeps what it is given.
class Service : public QDBusVirtualObject
{
public:
    explicit Service( const QStringList& abilities )
        : bus( QDBusConnection::connectToBus( QDBusConnection::SessionBus, QStringLiteral( "notifications" ) ) ),
          _abilities( abilities )
    {
        EXPECT_TRUE( bus.registerVirtualObject( PATH, this ) );
        EXPECT_TRUE( bus.registerService( SERVICE ) );
    }
    ~Service( ) override
    {
        bus.unregisterService( SERVICE );
        bus.unregisterObject( PATH );
        QDBusConnection::disconnectFromBus( QStringLiteral( "notifications" ) );
    }
    QString introspect( const QString& ) const override { return { }; }
    bool handleMessage( const QDBusMessage& message, const QDBusConnection& connection ) override
    {
        if( message.member( ) == QLatin1String( "GetCapabilities" ) )
            connection.send( message.createReply( _abilities ) );
        else if( message.member( ) == QLatin1String( "Notify" ) )
        {
            shown.push_back( message.arguments( ) );
            const uint replaced = message.arguments( )[1].toUInt( );
            const uint id = replaced ? replaced : ++last;
            connection.send( refusing ? message.createErrorReply( QDBusError::Failed, QStringLiteral( "no" ) )
                                      : message.createReply( id ) );
        }
        else if( message.member( ) == QLatin1String( "CloseNotification" ) )
            closed.push_back( message.arguments( )[0].toUInt( ) );
        return true;
    }
    void tell( const QString& signal, const QVariantList& arguments ) const { send( bus, signal, arguments ); }
    static void send( const QDBusConnection& from, const QString& signal, const QVariantList& arguments )
    {
        QDBusMessage message = QDBusMessage::createSignal( PATH, SERVICE, signal );
        message.setArguments( arguments );
        EXPECT_TRUE( from.send( message ) );
    }
    void click( uint id ) const { tell( QStringLiteral( "ActionInvoked" ), { id, QStringLiteral( "default" ) } ); }

    QDBusConnection bus;
    std::vector<QVariantList> shown;
    std::vector<uint> closed;
    bool refusing = false;
    uint last = 40;

private:
    QStringList _abilities;
};

const QStringList PLAIN = { QStringLiteral( "actions" ), QStringLiteral( "body" ) };
const QStringList MARKUP = PLAIN + QStringList{ QStringLiteral( "body-markup" ) };

class BalloonOnDesktop : public OnDesktop
{
protected:
    void SetUp( ) override
    {
        OnDesktop::SetUp( );
        icon = GIconOpen( &listener );
    }
    void TearDown( ) override
    {
        if( icon ) GIconClose( icon );
        OnDesktop::TearDown( );
    }
    // The tray's own.
    static QWidget* findBalloon( )
    {
        for( QWidget* widget : QApplication::topLevelWidgets( ) )
            if( widget->isVisible( ) && widget->inherits( "QBalloonTip" ) ) return widget;
        return nullptr;
    }
    static void click( const QWidget& widget )
    {
        const QPoint middle = widget.geometry( ).center( );
        drive( QStringLiteral( "mousemove %1 %2 click 1" ).arg( middle.x( ) ).arg( middle.y( ) ) );
    }
    static bool shows( const Service& service, size_t count )
    {
        return pumpUntil( [&]( ) { return service.shown.size( ) >= count; } ) && service.shown.size( ) == count;
    }
    // All that was under way between the icon and the service has arrived.
    static void settle( const Service& service )
    {
        for( int i = 0; i < 3; ++i )
        {
            service.bus.call( QDBusMessage::createMethodCall(
                QStringLiteral( "org.freedesktop.DBus" ), QStringLiteral( "/org/freedesktop/DBus" ),
                QStringLiteral( "org.freedesktop.DBus" ), QStringLiteral( "GetId" ) ) );
            pumpAll( );
        }
    }

    IconListener listener;
    GIcon icon = nullptr;
};
} // namespace

// ---- A service that can be looked into.

TEST_F( BalloonOnDesktop, TitleAndTextAreCutAndStandTenSeconds )
{
    Service service( PLAIN );
    GIconSetBubble( icon, GWString( 62, u't' ) + u"!", GWString( 254, u'x' ) + u"!", 7 );
    ASSERT_TRUE( shows( service, 1 ) );
    EXPECT_EQ( QStringLiteral( "Velmora" ), service.shown[0][0].toString( ) );
    EXPECT_EQ( QString( 62, QLatin1Char( 't' ) ), service.shown[0][3].toString( ) );
    EXPECT_EQ( QString( 254, QLatin1Char( 'x' ) ), service.shown[0][4].toString( ) );
    EXPECT_EQ( 10000, service.shown[0][7].toInt( ) );
}

TEST_F( BalloonOnDesktop, SameTextTwiceShowsOne )
{
    Service service( PLAIN );
    GIconSetBubble( icon, u"Title", u"Somebody calls", 7 );
    ASSERT_TRUE( shows( service, 1 ) );
    settle( service );
    GIconSetBubble( icon, u"Another title", u"Somebody calls", 8 );
    settle( service );
    EXPECT_EQ( 1u, service.shown.size( ) );
    GIconSetBubble( icon, u"Title", u"Somebody else calls", 9 );
    EXPECT_TRUE( shows( service, 2 ) );
}

TEST_F( BalloonOnDesktop, ClickComesBackWithTheCookieOfTheLast )
{
    Service service( PLAIN );
    GIconSetBubble( icon, u"Title", u"one", 7 );
    ASSERT_TRUE( shows( service, 1 ) );
    settle( service );
    GIconSetBubble( icon, u"Title", u"two", 8 );
    ASSERT_TRUE( shows( service, 2 ) );
    settle( service );
    // It took the place of the first.
    EXPECT_EQ( 0u, service.shown[0][1].toUInt( ) );
    EXPECT_EQ( 41u, service.shown[1][1].toUInt( ) );
    service.tell( QStringLiteral( "ActionInvoked" ), { 41u, QStringLiteral( "other" ) } );
    service.click( 99 );
    service.click( 41 );
    service.click( 41 );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !listener.cookies.empty( ); } ) );
    settle( service );
    EXPECT_EQ( std::vector<int>{ 8 }, listener.cookies );
}

TEST_F( BalloonOnDesktop, ClickToldAfterTheEndCountsAndTheNextIsANewOne )
{
    Service service( PLAIN );
    GIconSetBubble( icon, u"Title", u"one", 7 );
    ASSERT_TRUE( shows( service, 1 ) );
    settle( service );
    service.tell( QStringLiteral( "NotificationClosed" ), { 41u, 2u } );
    service.click( 41 );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.cookies == std::vector<int>{ 7 }; } ) );
    GIconSetBubble( icon, u"Title", u"two", 8 );
    ASSERT_TRUE( shows( service, 2 ) );
    EXPECT_EQ( 0u, service.shown[1][1].toUInt( ) );
}

TEST_F( BalloonOnDesktop, StrangersClicksAreIgnored )
{
    Service service( PLAIN );
    const QString name = QStringLiteral( "stranger" );
    GIconSetBubble( icon, u"Title", u"one", 7 );
    ASSERT_TRUE( shows( service, 1 ) );
    settle( service );
    Service::send( QDBusConnection::connectToBus( QDBusConnection::SessionBus, name ),
                   QStringLiteral( "ActionInvoked" ), { 41u, QStringLiteral( "default" ) } );
    QDBusConnection::disconnectFromBus( name );
    settle( service );
    EXPECT_TRUE( listener.cookies.empty( ) );
}

TEST_F( BalloonOnDesktop, HostileTextStaysText )
{
    const GWString hostile = u"<a href=\"x\">&amp;</a>";
    {
        Service service( PLAIN );
        GIconSetBubble( icon, hostile, hostile, 7 );
        ASSERT_TRUE( shows( service, 1 ) );
        EXPECT_EQ( QStringLiteral( "<a href=\"x\">&amp;</a>" ), service.shown[0][4].toString( ) );
        settle( service );
    }
    Service service( MARKUP );
    GIconSetBubble( icon, hostile, hostile + u"!", 7 );
    ASSERT_TRUE( shows( service, 1 ) );
    EXPECT_EQ( QStringLiteral( "<a href=\"x\">&amp;</a>" ), service.shown[0][3].toString( ) );
    EXPECT_EQ( QStringLiteral( "&lt;a href=&quot;x&quot;&gt;&amp;amp;&lt;/a&gt;!" ), service.shown[0][4].toString( ) );
    settle( service );
    // Broken pairs and what no text should hold.
    GIconSetBubble( icon, u"\xD83D", GWString( u"a\xDE00\0b\x01", 5 ), 7 );
    EXPECT_TRUE( shows( service, 2 ) );
    EXPECT_TRUE( service.shown[1][4].toString( ).startsWith( QLatin1Char( 'a' ) ) );
}

TEST_F( BalloonOnDesktop, OfManyAtOnceTheLastIsShown )
{
    Service service( PLAIN );
    for( int i = 0; i < 100; ++i ) GIconSetBubble( icon, u"Title", GWString( static_cast<size_t>( i + 1 ), u'x' ), i );
    ASSERT_TRUE( pumpUntil( [&]( ) { return !service.shown.empty( ); } ) );
    settle( service );
    EXPECT_LE( service.shown.size( ), 2u );
    EXPECT_EQ( 100, service.shown.back( )[4].toString( ).size( ) );
    service.click( 41 );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.cookies == std::vector<int>{ 99 }; } ) );
}

TEST_F( BalloonOnDesktop, GoesWithItsIcon )
{
    Service service( PLAIN );
    GIconSetBubble( icon, u"Title", u"one", 7 );
    ASSERT_TRUE( shows( service, 1 ) );
    settle( service );
    GIconClose( icon );
    icon = nullptr;
    EXPECT_TRUE( pumpUntil( [&]( ) { return service.closed == std::vector<uint>{ 41 }; } ) );
}

// ---- The tray's own.

TEST_F( BalloonOnDesktop, TrayShowsItWithoutAService )
{
    const auto host = startTray( );
    ASSERT_TRUE( awaitTray( true ) );
    ASSERT_TRUE( pumpUntil( [&]( ) { return icon->geometry( ).top( ) > 700; } ) );
    GIconSetBubble( icon, u"<b>Title</b>", u"<b>Somebody</b> calls", 7 );
    ASSERT_TRUE( pumpUntil( [&]( ) { return findBalloon( ) != nullptr; } ) );
    for( const QLabel* label : findBalloon( )->findChildren<QLabel*>( ) )
        EXPECT_TRUE( label->text( ).isEmpty( ) || label->textFormat( ) == Qt::PlainText );
    // It points at the icon.
    EXPECT_GT( findBalloon( )->geometry( ).bottom( ), 700 );
    drive( QStringLiteral( "sleep 0.2" ) );
    keepPicture( QStringLiteral( "balloon" ) );
    click( *findBalloon( ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.cookies == std::vector<int>{ 7 } && !findBalloon( ); } ) );
    GIconSetBubble( icon, u"Title", u"<b>Somebody</b> calls", 8 );
    pumpAll( );
    EXPECT_EQ( nullptr, findBalloon( ) );
    GIconSetBubble( icon, u"Title", u"Somebody else calls", 9 );
    ASSERT_TRUE( pumpUntil( [&]( ) { return findBalloon( ) != nullptr; } ) );
    click( *findBalloon( ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.cookies == std::vector<int>{ 7, 9 }; } ) );
}

TEST_F( BalloonOnDesktop, SeenEvenWithoutServiceAndTray )
{
    ASSERT_TRUE( awaitTray( false ) );
    GIconSetBubble( icon, u"<b>Title</b>", u"You cannot hear <i>ann</i> talking because your speakers are muted.", 7 );
    ASSERT_TRUE( pumpUntil( [&]( ) { return icon->window.isVisible( ); } ) );
    for( const QLabel* label : icon->window.findChildren<QLabel*>( ) ) EXPECT_EQ( Qt::PlainText, label->textFormat( ) );
    EXPECT_TRUE( QRect( 640, 400, 640, 400 ).contains( icon->window.geometry( ) ) );
    drive( QStringLiteral( "sleep 0.2" ) );
    keepPicture( QStringLiteral( "balloon_alone" ) );
    click( icon->window );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.cookies == std::vector<int>{ 7 }; } ) );
    EXPECT_FALSE( icon->window.isVisible( ) );
    // It ends by itself, too, and that is no click.
    icon->window.show( QStringLiteral( "Title" ), QStringLiteral( "once more" ), 100 );
    EXPECT_TRUE( icon->window.isVisible( ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !icon->window.isVisible( ); } ) );
    EXPECT_EQ( std::vector<int>{ 7 }, listener.cookies );
}

TEST_F( BalloonOnDesktop, TrayShowsItWhenTheServiceRefusesOrKnowsNoClicks )
{
    const auto host = startTray( );
    ASSERT_TRUE( awaitTray( true ) );
    for( const bool refusing : { true, false } )
    {
        Service service( refusing ? PLAIN : QStringList{ QStringLiteral( "body" ) } );
        service.refusing = refusing;
        GIconSetBubble( icon, u"Title", refusing ? u"refused" : u"without clicks", 7 );
        ASSERT_TRUE( pumpUntil( [&]( ) { return findBalloon( ) != nullptr; } ) );
        EXPECT_EQ( refusing ? 1u : 0u, service.shown.size( ) );
        click( *findBalloon( ) );
        EXPECT_TRUE( pumpUntil( [&]( ) { return !findBalloon( ); } ) );
    }
    EXPECT_EQ( ( std::vector<int>{ 7, 7 } ), listener.cookies );
}

// ---- A real service.

TEST_F( BalloonOnDesktop, RealServiceShowsItAndSendsTheClickBack )
{
    const Program service( QStringLiteral( "dunst" ) );
    ASSERT_TRUE( pumpUntil(
        []( ) { return QDBusConnection::sessionBus( ).interface( )->isServiceRegistered( SERVICE ).value( ); } ) );
    GIconSetBubble( icon, u"Buddy <b>", u"You cannot hear <i>ann</i> & co.", 5 );
    QByteArray window;
    ASSERT_TRUE( pumpUntil(
        [&]( )
        {
            window = run( QStringLiteral( "xdotool search --onlyvisible --class Dunst" ) ).trimmed( );
            return !window.isEmpty( );
        } ) );
    drive( QStringLiteral( "sleep 0.2" ) );
    keepPicture( QStringLiteral( "dunst" ) );
    EXPECT_EQ( nullptr, findBalloon( ) );
    drive( QStringLiteral( "mousemove --window %1 30 20 click 2" ).arg( QString::fromLatin1( window ) ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.cookies == std::vector<int>{ 5 }; } ) );
    EXPECT_TRUE( pumpUntil(
        [&]( ) { return run( QStringLiteral( "xdotool search --onlyvisible --class Dunst" ) ).isEmpty( ); } ) );
}
