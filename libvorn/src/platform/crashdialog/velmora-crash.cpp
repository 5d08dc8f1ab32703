// The crash dialog as a program of its own: the process that failed has started it and reads the answer from its standard output.
#include "platform/crashdialog/GCrashDialog.h"

#include <QApplication>

#include <cstdio>

int main( int argc, char** argv )
{
    // Whatever the failed program drew on, the dialog is for somebody to see. Without a display this ends here, which says Cancel.
    if( !qEnvironmentVariableIsEmpty( "DISPLAY" ) ) qputenv( "QT_QPA_PLATFORM", "xcb" );
    QApplication application( argc, argv );
    GCrashDialog dialog;
    dialog.exec( );
    const QByteArray answer = dialog.getAnswer( );
    fwrite( answer.constData( ), 1, static_cast<size_t>( answer.size( ) ), stdout );
    return 0;
}
