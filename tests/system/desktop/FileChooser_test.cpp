// The file choosers, used by keys and pointer.
#include "base/GUtil.h"
#include "system/desktop/OnDesktop.h"

#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QTemporaryDir>

namespace
{
class FileChooserOnDesktop : public OnDesktop
{
protected:
    // Runs `steps` once the chooser has the keys.
    static GWString answer( const std::function<GWString( )>& choose, const QStringList& steps,
                            const QString& picture = { } )
    {
        QTimer opener;
        int next = 0;
        QObject::connect(
            &opener, &QTimer::timeout,
            [&]( )
            {
                if( next == steps.size( ) || !isReady( next ) ) return;
                if( !next && !picture.isEmpty( ) ) keepPicture( picture );
                QProcess::startDetached( QStringLiteral( "sh" ), { QStringLiteral( "-c" ), steps[next++] } );
            } );
        opener.start( 200 );
        const GWString path = choose( );
        EXPECT_EQ( steps.size( ), next );
        return path;
    }
    // The dialog itself, and for each step after it one more upon it.
    static bool isReady( int step )
    {
        const QWidget* active = QApplication::activeWindow( );
        return active && active->isVisible( ) && ( active->inherits( "QFileDialog" ) == ( step == 0 ) );
    }
    static GWString open( ) { return GSystemChooseFileOpen( u"Please choose the file to send to ann" ); }
    static GWString save( )
    {
        return GSystemChooseFileSave( u"Please choose where to save the file", u"from ann.txt" );
    }
    QString make( const QString& name )
    {
        QFile file( folder.filePath( name ) );
        EXPECT_TRUE( file.open( QIODevice::WriteOnly ) );
        return file.fileName( );
    }
    // A name pasted and confirmed by the button; the tab key ends the proposals below the field. Typed fast, the toolkit's proposals for
    // half a path would now and then lead the chooser astray.
    static QString enter( const QString& text, const QString& button = QStringLiteral( "alt+o" ) )
    {
        QGuiApplication::clipboard( )->setText( text );
        return QStringLiteral( "xdotool key ctrl+v key Tab key %1" ).arg( button );
    }

    QTemporaryDir folder;
};
} // namespace

TEST_F( FileChooserOnDesktop, OpeningGivesTheFullPath )
{
    const QString path = make( QStringLiteral( "picture.png" ) );
    EXPECT_EQ( GDesktopText( path ), answer( open, { enter( path ) }, QStringLiteral( "chooser_open" ) ) );
}

TEST_F( FileChooserOnDesktop, NextOneBeginsBesideTheFileChosenLast )
{
    make( QStringLiteral( "one.txt" ) );
    const QString path = make( QStringLiteral( "two.txt" ) );
    answer( open, { enter( folder.filePath( QStringLiteral( "one.txt" ) ) ) } );
    EXPECT_EQ( GDesktopText( path ), answer( open, { enter( QStringLiteral( "two.txt" ) ) } ) );
}

TEST_F( FileChooserOnDesktop, CancelGivesNothing )
{
    EXPECT_EQ( u"", answer( open, { QStringLiteral( "xdotool key Escape" ) } ) );
    EXPECT_EQ( u"", answer( save, { QStringLiteral( "xdotool key Escape" ) } ) );
    EXPECT_EQ( u"", answer( open, { QStringLiteral( "xdotool key alt+F4" ) } ) );
}

TEST_F( FileChooserOnDesktop, SavingProposesTheName )
{
    make( QStringLiteral( "one.txt" ) );
    answer( open, { enter( folder.filePath( QStringLiteral( "one.txt" ) ) ) } );
    EXPECT_EQ( GDesktopText( folder.filePath( QStringLiteral( "from ann.txt" ) ) ),
               answer( save, { QStringLiteral( "xdotool key Return" ) }, QStringLiteral( "chooser_save" ) ) );
}

TEST_F( FileChooserOnDesktop, ProposedNameSaysNothingAboutThePlace )
{
    make( QStringLiteral( "one.txt" ) );
    answer( open, { enter( folder.filePath( QStringLiteral( "one.txt" ) ) ) } );
    EXPECT_EQ( GDesktopText( folder.filePath( QStringLiteral( "passwd" ) ) ),
               answer( []( ) { return GSystemChooseFileSave( u"Save", u"../../etc/passwd" ); },
                       { QStringLiteral( "xdotool key Return" ) } ) );
}

TEST_F( FileChooserOnDesktop, SavingAsksBeforeItReplaces )
{
    const QString path = make( QStringLiteral( "there.txt" ) );
    EXPECT_EQ( GDesktopText( path ),
               answer( save, { enter( path, QStringLiteral( "alt+s" ) ), QStringLiteral( "xdotool key alt+y" ) } ) );
}

TEST_F( FileChooserOnDesktop, WindowsGoOnMeanwhile )
{
    WinListener listener;
    GWin win = GWinOpen( u"call", { 20, 20, 120, 120 }, true, &listener );
    GWinRepaint( win, 100, 100, plain( 100, 100, "\x20\x40\x60\xFF" ).data( ), 255 );
    GWinShow( win );
    EXPECT_EQ( u"", answer( open, { QStringLiteral( "xdotool mousemove 60 60 click 1 sleep 0.2 key Escape" ) } ) );
    EXPECT_EQ( "down 40,40; up 40,40; ", listener.clicks );
    GWinClose( win );
}
