#include "platform/GSystem.h"

#include "base/GPortable.h"
#include "platform/desktop/GDesktop_Qt.h"

#include <QFileDialog>
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
    return GDesktopText( QFileDialog::getOpenFileName( nullptr, GDesktopText( title ) ) );
}

GWString GSystemChooseFileSave( const GWString& title, const GWString& name )
{
    GCALL( function );
    GDesktopOpen( );
    return GDesktopText( QFileDialog::getSaveFileName( nullptr, GDesktopText( title ), GDesktopText( name ) ) );
}
