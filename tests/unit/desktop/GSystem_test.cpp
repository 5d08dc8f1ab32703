#include "platform/GSystem.h"

#include "base/GPortable.h"
#include "base/GUtil.h"
#include "libvorn/src/platform/input/GHotkey.h"
#include "libvorn/src/platform/system/GSystem_Logind.h"
#include "platform/GIcon.h"
#include "unit/desktop/DesktopFixture.h"

namespace
{
class Listener : public IGSystemListener
{
public:
    void onSuspend( ) override { said += "suspend "; }
    void onResume( ) override
    {
        said += "resume ";
        if( resigns ) GSystemResignListener( resigns );
    }
    void onHotkeyDown( GHotkey, const GWString& name ) override { said += "down:" + GWideToUTF8( name ) + " "; }
    void onHotkeyUp( GHotkey, const GWString& name ) override { said += "up:" + GWideToUTF8( name ) + " "; }
    std::string said;
    IGSystemListener* resigns = nullptr;
};
using GSystemTest = DesktopFixture;
} // namespace

TEST_F( GSystemTest, SleepReachesEveryListenerAndTheLog )
{
    Listener a;
    Listener b;
    GSystemRegisterListener( &a );
    GSystemRegisterListener( &b );
    GLogSetFilter( "w" );
    GSleepWatch watch( nullptr );
    watch.onPrepareForSleep( true );
    watch.onPrepareForSleep( false );
    GLogSetFilter( "" );
    EXPECT_EQ( "suspend resume ", a.said );
    EXPECT_EQ( "suspend resume ", b.said );
    EXPECT_TRUE( TestLog::contains( "PBT_APMSUSPEND" ) );
    EXPECT_TRUE( TestLog::contains( "PBT_APMRESUMESUSPEND" ) );
    GSystemResignListener( &a );
    GSystemResignListener( &b );
    watch.onPrepareForSleep( true );
    EXPECT_EQ( "suspend resume ", a.said );
}

TEST_F( GSystemTest, ListenerResignedMeanwhileIsNotCalled )
{
    Listener a;
    Listener b;
    a.resigns = &b;
    GSystemRegisterListener( &a );
    GSystemRegisterListener( &b );
    GSystemTellResume( );
    EXPECT_EQ( "resume ", a.said );
    EXPECT_EQ( "", b.said );
    GSystemResignListener( &a );
}

TEST_F( GSystemTest, UnknownHotkeyIsWarnedOf )
{
    TestLog::expect( "WARNING Unrecognzied hotkey #4711 pressed, ignoring." );
    GHotkeyOnMessage( 4711 );
}

TEST_F( GSystemTest, EmptyHotkeyTextGivesNull )
{
    EXPECT_EQ( nullptr, GSystemHotkeyOpen( u"", u"name" ) );
    EXPECT_EQ( nullptr, GSystemHotkeyOpen( u"+ +", u"name" ) );
    EXPECT_EQ( u"", GSystemGetKeysPressed( ) );
}

TEST_F( GSystemTest, InfoIsOneLineWithItsFields )
{
    const GString info = GWideToUTF8( GSystemGetInfo( ) );
    for( const char* field : { "language=", "CPU=", "Mhz, ", "RAM=", "MB, ", "numMonitors=", "screen=(", "px, ",
                               "mm), ", "bpp=", "country=" } )
        EXPECT_NE( GString::npos, info.find( field ) ) << field << " in " << info;
    EXPECT_EQ( GString::npos, info.find( '\n' ) );
}

TEST_F( GSystemTest, MenuIsNotShownWhileShuttingDown )
{
    GSetShuttingDown( true );
    EXPECT_LT( GMenuExecute( { u"one", u"two" } ), 0 );
    GSetShuttingDown( false );
    EXPECT_LT( GMenuExecute( { } ), 0 );
}

TEST_F( GSystemTest, IconStateIsAsserted )
{
    IGIconListener listener;
    GIcon icon = GIconOpen( &listener );
    EXPECT_DEATH( GIconSetState( icon, 6 ), "GWITHIN\\( GIS_PUBLIC_OFFLINE, state, GIS_PRIVATE_ONLINE \\)" );
    GIconClose( icon );
}

TEST_F( GSystemTest, NullHandlesAbort )
{
    EXPECT_DEATH( GIconOpen( nullptr ), "listener" );
    EXPECT_DEATH( GIconClose( nullptr ), "icon" );
    EXPECT_DEATH( GIconSetText( nullptr, u"text" ), "icon" );
    EXPECT_DEATH( GIconSetBubble( nullptr, u"title", u"text", 1 ), "icon" );
    EXPECT_DEATH( GSystemHotkeyClose( nullptr ), "hotkey" );
    EXPECT_DEATH( GSystemRegisterListener( nullptr ), "listener" );
    EXPECT_DEATH( GSystemResignListener( nullptr ), "listener" );
}
