#include "platform/GSystem.h"

#include "base/GPortable.h"
#include "platform/desktop/GDesktop_Qt.h"

#include <QDir>
#include <QEventLoop>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>

#include <map>

namespace
{
QMessageBox::Icon iconOf( GBoxIcon icon )
{
    switch( icon )
    {
    case GBOX_WARNING: return QMessageBox::Warning;
    case GBOX_ERROR: return QMessageBox::Critical;
    default: return QMessageBox::Information;
    }
}
// Where the next chooser begins: beside the file that was chosen last.
QString& folder( )
{
    static QString last = QDir::homePath( );
    return last;
}

// Waits without holding the program's windows up: a call may come in while somebody looks for a file.
GWString chooseFile( const GWString& title, QFileDialog::AcceptMode mode, const QString& name )
{
    if( GDesktopIsDown( ) ) return { };
    QFileDialog dialog( nullptr, GDesktopText( title ), folder( ) );
    dialog.setAcceptMode( mode );
    dialog.setFileMode( mode == QFileDialog::AcceptOpen ? QFileDialog::ExistingFile : QFileDialog::AnyFile );
    // A name from elsewhere says nothing about the place.
    if( !name.isEmpty( ) ) dialog.selectFile( QFileInfo( name ).fileName( ) );
    QEventLoop loop;
    QObject::connect( &dialog, &QDialog::finished, &loop, &QEventLoop::quit );
    dialog.show( );
    dialog.activateWindow( );
    loop.exec( );
    if( dialog.result( ) != QDialog::Accepted || dialog.selectedFiles( ).isEmpty( ) ) return { };
    const QString path = dialog.selectedFiles( ).constFirst( );
    folder( ) = QFileInfo( path ).absolutePath( );
    return GDesktopText( path );
}
} // namespace

int GSystemMessageBox( const GWString& title, const GWString& text, const GStringVector& buttons, int defaultButton,
                       int cancel, GBoxIcon icon )
{
    GCALL( function );
    GDesktopOpen( );
    QMessageBox box( iconOf( icon ), GDesktopText( title ), GDesktopText( text ) );
    box.setTextFormat( Qt::PlainText );
    std::map<QAbstractButton*, int> numbers;
    for( int i = 0; i < static_cast<int>( buttons.size( ) ); ++i )
    {
        // Buttons of one role stand in the order in which they were asked for.
        QPushButton* button = box.addButton( GDesktopText( buttons[i] ), QMessageBox::ActionRole );
        numbers[button] = i;
        if( i == defaultButton ) box.setDefaultButton( button );
        if( i == cancel ) box.setEscapeButton( button );
    }
    box.exec( );
    const auto clicked = numbers.find( box.clickedButton( ) );
    return clicked == numbers.end( ) ? cancel : clicked->second;
}

GWString GSystemChooseFileOpen( const GWString& title )
{
    GCALL( function );
    GDesktopOpen( );
    return chooseFile( title, QFileDialog::AcceptOpen, QString( ) );
}

GWString GSystemChooseFileSave( const GWString& title, const GWString& name )
{
    GCALL( function );
    GDesktopOpen( );
    return chooseFile( title, QFileDialog::AcceptSave, GDesktopText( name ) );
}
