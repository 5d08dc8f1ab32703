#include "platform/GIcon.h"

#include "base/GPortable.h"
#include "platform/desktop/GDesktop_Qt.h"

#include <QAction>
#include <QCursor>
#include <QMenu>

int GMenuExecute( const GStringVector& labels )
{
    GCALL( function );
    if( GDesktopIsDown( ) ) return -1;
    GDesktopOpen( );
    QMenu menu;
    for( const GWString& label : labels )
    {
        QAction* action = menu.addAction( GDesktopText( label ) );
        action->setData( static_cast<int>( menu.actions( ).size( ) ) ); // Numbered from 1.
    }
    if( menu.isEmpty( ) ) return -1;
    const QPoint pointer = QCursor::pos( );
    const QAction* chosen = menu.exec( { pointer.x( ), pointer.y( ) - menu.sizeHint( ).height( ) } );
    return ( chosen ? chosen->data( ).toInt( ) : 0 ) - 1;
}
