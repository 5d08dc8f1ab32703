#include "platform/GSystem.h"
#include "platform/desktop/GDesktop_Qt.h"

#include <QClipboard>
#include <QGuiApplication>

GWString GClipboardGetText( )
{
    GDesktopOpen( );
    return GDesktopText( QGuiApplication::clipboard( )->text( ) );
}

void GClipboardSetText( const GWString& text )
{
    GDesktopOpen( );
    QGuiApplication::clipboard( )->setText( GDesktopText( text ) );
    GDesktopFlush( );
}
