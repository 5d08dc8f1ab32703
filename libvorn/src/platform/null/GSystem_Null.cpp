#include "platform/GSystem.h"

#include "base/GPortable.h"
#include "platform/GCrash.h"
#include "platform/GNull.h"
#include "platform/GThread.h"

namespace
{
GNullBoxAnswer boxAnswer_ = nullptr;
} // namespace

void GNullSetBoxAnswer( GNullBoxAnswer answer )
{
    boxAnswer_ = answer;
}

void GSystemRegisterListener( IGSystemListener* ) {}
void GSystemResignListener( IGSystemListener* ) {}
GHotkey GSystemHotkeyOpen( const GWString&, const GWString& )
{
    return nullptr;
}
void GSystemHotkeyClose( GHotkey ) {}
GWString GSystemGetKeysPressed( )
{
    return { };
}
bool GSystemIsKeyDown( int )
{
    return false;
}
GWString GClipboardGetText( )
{
    return { };
}
void GClipboardSetText( const GWString& ) {}
GWString GSystemGetInfo( )
{
    return u"(unknown), language=, CPU=0Mhz, RAM=0MB, numMonitors=0, screen=(0x0px, 0x0mm), bpp=0, country=";
}
int GSystemMessageBox( const GWString& title, const GWString& text, const GStringVector&, int, int cancel, GBoxIcon )
{
    return boxAnswer_ ? boxAnswer_( title, text ) : cancel;
}
GWString GSystemChooseFileOpen( const GWString& )
{
    return { };
}
GWString GSystemChooseFileSave( const GWString&, const GWString& )
{
    return { };
}

void GInitializeNonPortable( void ( *crashHandler )( ) )
{
    GCrashInstall( crashHandler );
    GThreadRegister( u"(main)" );
}
void GNonPortableClose( ) {}
