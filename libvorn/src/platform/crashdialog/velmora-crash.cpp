// The crash dialog, a program of its own: the process that failed has started it and reads the answer from its standard output.
// Answer: 'O' for OK or 'C', then '1' or '0' for a restart, '1' or '0' for a comment, then the comment in UTF-8.
#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QTextEdit>
#include <QVBoxLayout>

#include <cstdio>

namespace
{
constexpr int MAX_COMMENT = 1024;
const QString TITLE = "Velmora Issue Capture Tool";
const QString TEXT =
    "Oops, we crashed.  For my records, could you please give a brief description of what you were doing when it "
    "crashed?  The next time you run Velmora, this will be sent to my servers and hopefully I can figure out what "
    "happend.  Thanks!";
const QString PRESET =
    "1. What steps can I take to reproduce this crash?\r\n\r\n\r\n"
    "2. What other bugs have you encountered, and how can I reproduce those?\r\n\r\n\r\n"
    "3. Overall, how are things going?  What's good, what's bad, and what do you most want changed?\r\n";

// The edit knows line feeds only.
QString withLineFeeds( QString text )
{
    return text.replace( "\r\n", "\n" );
}
} // namespace

int main( int argc, char** argv )
{
    QApplication application( argc, argv );
    QDialog dialog;
    dialog.setWindowTitle( TITLE );
    dialog.setWindowFlag( Qt::WindowStaysOnTopHint );
    QVBoxLayout layout( &dialog );
    QLabel label( TEXT );
    label.setWordWrap( true );
    QTextEdit edit;
    edit.setAcceptRichText( false );
    edit.setTabChangesFocus( true );
    edit.setPlainText( withLineFeeds( PRESET ) );
    edit.setMinimumSize( 480, 220 );
    QCheckBox restart( "Restart Velmora automatically" );
    restart.setChecked( true );
    QDialogButtonBox buttons( QDialogButtonBox::Ok | QDialogButtonBox::Cancel );
    QObject::connect( &buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept );
    QObject::connect( &buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject );
    layout.addWidget( &label );
    layout.addWidget( &edit );
    layout.addWidget( &restart );
    layout.addWidget( &buttons );
    edit.setFocus( );

    const bool agreed = dialog.exec( ) == QDialog::Accepted;
    const QString comment = edit.toPlainText( ).left( MAX_COMMENT );
    const bool commented = agreed && comment != withLineFeeds( PRESET );
    QByteArray answer;
    answer += agreed ? 'O' : 'C';
    answer += agreed && restart.isChecked( ) ? '1' : '0';
    answer += commented ? '1' : '0';
    if( commented ) answer += comment.toUtf8( );
    fwrite( answer.constData( ), 1, static_cast<size_t>( answer.size( ) ), stdout );
    return 0;
}
