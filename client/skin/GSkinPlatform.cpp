#include "client/skin/GSkinPlatform.h"

#include "base/GDebug.h"
#include "base/GPortable.h"
#include "platform/GIcon.h"
#include "platform/GScreen.h"
#include "platform/GWin.h"

namespace
{
constexpr int LEFT_BUTTON = 1;
constexpr int CLOSED = -1;
constexpr char16_t LOG_BASE[] = u"velmora";

void rollLogFile( )
{
    GLogClose( true );
    GVERIFY( GLogOpen( LOG_BASE, false ) );
}

void showErrorBox( const GWString& title, const GWString& text )
{
    GSystemMessageBox( title, text, { u"OK" }, 0, CLOSED, GBOX_ERROR );
}
} // namespace

GSkinPlatform::GSkinPlatform( )
    : executeMenu( GMenuExecute ), chooseFile( GSystemChooseFileOpen ),
      openDocument( []( const GWString& path, GWString& reason )
                    { return GSystemExecute( path, GWString( ), reason ); } ),
      isLeftButtonDown( [] { return GSystemIsKeyDown( LEFT_BUTTON ); } ), openHotkey( GSystemHotkeyOpen ),
      closeHotkey( GSystemHotkeyClose ),
      listWindows( []( std::map<uint32_t, GWString>& windows ) { GScreenGetWindowList( &windows ); } ),
      raiseWindow( GScreenRaiseWindow ), getWorkArea( [] { return GWinGetWorkArea( 0, 0 ); } ),
      getScale( GWinGetScale ), followScale( GWinFollowScale ), showError( showErrorBox ), rollLog( rollLogFile )
{
}
