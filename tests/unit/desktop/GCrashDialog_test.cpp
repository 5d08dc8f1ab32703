#include "libvorn/src/platform/crashdialog/GCrashDialog.h"

#include "unit/desktop/DesktopFixture.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QTextEdit>

#include <memory>

namespace
{
const char* const PRESET = "1. What steps can I take to reproduce this crash?\n\n\n"
                           "2. What other bugs have you encountered, and how can I reproduce those?\n\n\n"
                           "3. Overall, how are things going?  What's good, what's bad, and what do you most want "
                           "changed?\n";

class GCrashDialogTest : public DesktopFixture
{
protected:
    void SetUp( ) override
    {
        DesktopFixture::SetUp( );
        dialog = std::make_unique<GCrashDialog>( );
    }
    void edit( const QString& text ) { dialog->findChild<QTextEdit*>( )->setPlainText( text ); }
    QByteArray ok( )
    {
        dialog->findChild<QDialogButtonBox*>( )->button( QDialogButtonBox::Ok )->click( );
        return dialog->getAnswer( );
    }
    std::unique_ptr<GCrashDialog> dialog;
};
} // namespace

TEST_F( GCrashDialogTest, AsksInItsOwnWords )
{
    EXPECT_EQ( dialog->windowTitle( ), "Velmora Issue Capture Tool" );
    EXPECT_EQ( dialog->findChild<QLabel*>( )->text( ),
               "Oops, we crashed.  For my records, could you please give a brief description of what you were doing "
               "when it crashed?  The next time you run Velmora, this will be sent to my servers and hopefully I can "
               "figure out what happend.  Thanks!" );
    EXPECT_EQ( dialog->findChild<QTextEdit*>( )->toPlainText( ), PRESET );
    const auto* restart = dialog->findChild<QCheckBox*>( );
    EXPECT_EQ( restart->text( ), "Restart Velmora automatically" );
    EXPECT_TRUE( restart->isChecked( ) );
    const QList<QAbstractButton*> buttons = dialog->findChild<QDialogButtonBox*>( )->buttons( );
    ASSERT_EQ( buttons.size( ), 2 );
    EXPECT_EQ( buttons[0]->text( ).remove( '&' ), "OK" );
    EXPECT_EQ( buttons[1]->text( ).remove( '&' ), "Cancel" );
}
TEST_F( GCrashDialogTest, UnchangedTextIsNoComment )
{
    EXPECT_EQ( ok( ), "O10" );
}
TEST_F( GCrashDialogTest, CheckBoxDecidesOnTheRestart )
{
    dialog->findChild<QCheckBox*>( )->setChecked( false );
    EXPECT_EQ( ok( ), "O00" );
}
TEST_F( GCrashDialogTest, ChangedTextIsTheComment )
{
    edit( QString( PRESET ) + QString::fromUtf8( "gr\xC3\xBC\xC3\x9F" ) );
    EXPECT_EQ( ok( ), QByteArray( "O11" ) + PRESET + "gr\xC3\xBC\xC3\x9F" );
}
TEST_F( GCrashDialogTest, EmptiedEditIsAnEmptyComment )
{
    edit( "" );
    EXPECT_EQ( ok( ), "O11" );
}
TEST_F( GCrashDialogTest, CommentHasAtMost1024Characters )
{
    edit( QString( 1023, u'a' ) + QString::fromUtf8( "\xF0\x9F\x98\x80" ) + "b" );
    EXPECT_EQ( ok( ), "O11" + QByteArray( 1023, 'a' ) );
    edit( QString( 1022, u'a' ) + QString::fromUtf8( "\xF0\x9F\x98\x80" ) + "b" );
    EXPECT_EQ( ok( ), "O11" + QByteArray( 1022, 'a' ) + "\xF0\x9F\x98\x80" );
}
TEST_F( GCrashDialogTest, CancelSaysNothingWhateverWasWritten )
{
    edit( "text" );
    dialog->findChild<QDialogButtonBox*>( )->button( QDialogButtonBox::Cancel )->click( );
    EXPECT_EQ( dialog->getAnswer( ), "C00" );
}
TEST_F( GCrashDialogTest, ClosingIsCancelling )
{
    dialog->show( );
    dialog->close( );
    EXPECT_EQ( dialog->getAnswer( ), "C00" );
}
