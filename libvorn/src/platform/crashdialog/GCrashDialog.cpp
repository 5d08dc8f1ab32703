#include "platform/crashdialog/GCrashDialog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QTextEdit>
#include <QVBoxLayout>

namespace
{
constexpr int MAX_COMMENT = 1024;
constexpr const char* TITLE = "Velmora Issue Capture Tool";
constexpr const char* TEXT =
    "Oops, we crashed.  For my records, could you please give a brief description of what you were doing when it "
    "crashed?  The next time you run Velmora, this will be sent to my servers and hopefully I can figure out what "
    "happend.  Thanks!";
constexpr const char* PRESET =
    "1. What steps can I take to reproduce this crash?\r\n\r\n\r\n"
    "2. What other bugs have you encountered, and how can I reproduce those?\r\n\r\n\r\n"
    "3. Overall, how are things going?  What's good, what's bad, and what do you most want changed?\r\n";

// The edit knows line feeds only.
QString getPreset( )
{
    return QString( PRESET ).replace( "\r\n", "\n" );
}
// No character of two units is cut in half.
QString cut( const QString& text )
{
    const QString part = text.left( MAX_COMMENT );
    return !part.isEmpty( ) && part.back( ).isHighSurrogate( ) ? part.chopped( 1 ) : part;
}
} // namespace

GCrashDialog::GCrashDialog( ) : _edit( new QTextEdit ), _restart( new QCheckBox( "Restart Velmora automatically" ) )
{
    setWindowTitle( TITLE );
    setWindowFlag( Qt::WindowStaysOnTopHint );
    auto* const label = new QLabel( TEXT );
    label->setTextFormat( Qt::PlainText );
    label->setWordWrap( true );
    _edit->setAcceptRichText( false );
    _edit->setTabChangesFocus( true );
    _edit->setPlainText( getPreset( ) );
    _edit->setMinimumSize( 480, 220 );
    _restart->setChecked( true );
    auto* const buttons = new QDialogButtonBox( QDialogButtonBox::Ok | QDialogButtonBox::Cancel );
    connect( buttons, &QDialogButtonBox::accepted, this, &QDialog::accept );
    connect( buttons, &QDialogButtonBox::rejected, this, &QDialog::reject );
    auto* const layout = new QVBoxLayout( this );
    layout->addWidget( label );
    layout->addWidget( _edit );
    layout->addWidget( _restart );
    layout->addWidget( buttons );
    _edit->setFocus( );
}

QByteArray GCrashDialog::getAnswer( ) const
{
    if( result( ) != Accepted ) return "C00";
    const QString comment = cut( _edit->toPlainText( ) );
    const bool isCommented = comment != getPreset( );
    QByteArray answer = "O";
    answer += _restart->isChecked( ) ? '1' : '0';
    answer += isCommented ? '1' : '0';
    return isCommented ? answer + comment.toUtf8( ) : answer;
}
