#include "client/app/GClientPlatform.h"

#include "base/GDebug.h"
#include "client/app/GClientServices.h"
#include "platform/GNet.h"
#include "platform/GSound.h"
#include "platform/GSystem.h"
#include "platform/GWin.h"

GClientPlatform GClientPlatformGet( )
{
    return {
        .services = GClientServicesGet( ),
        .openSkin = GClientSkinOpen,
        .whenShown = GWinWhenShown,
        .openTimer = GTimerOpen,
        .closeTimer = GTimerClose,
        .setTimerPeriod = GTimerSetPeriod,
        .openIcon = GIconOpen,
        .closeIcon = GIconClose,
        .setIconState = GIconSetState,
        .setIconText = GIconSetText,
        .setIconBubble = GIconSetBubble,
        .hasTray = GIconHasHost,
        .isAnyWindowShown = GWinIsAnyShown,
        .executeMenu = GMenuExecute,
        .openDocument = []( const GWString& path, GWString& reason ) { return GSystemExecute( path, u"", reason ); },
        .chooseFileSave = GSystemChooseFileSave,
        .registerListener = GSystemRegisterListener,
        .resignListener = GSystemResignListener,
        .postQuit = GWinPostQuit,
        .repeatOptions = nullptr,
        .isTerminating = GIsSystemTerminating,
        .listIPs = GNetListIPs,
        .listInterfaceIPs = GNetListInterfaceIPs,
        .playSound = GSoundPlay,
        .isMuted = GSoundIsMuted,
        .setMute = GSoundSetMute,
        .getVolume = GSoundGetVolume,
        .setVolumeLines = GSoundSetLines,
    };
}
