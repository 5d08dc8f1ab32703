// The client's process entry: hands the command line, as one text, to the entry point that all programs share.
#include "start/GWinMain.h"

int main( int argc, char** argv )
{
    GString commandLine;
    for( int i = 1; i < argc; ++i )
    {
        if( i > 1 ) commandLine += ' ';
        commandLine += argv[i];
    }
    return WinMain( argv[0], commandLine );
}
