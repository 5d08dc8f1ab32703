#include "client/app/GClientSettings.h"

#include "base/GUtil.h"
#include "runtime/GInstance.h"

#include <sstream>

namespace
{
struct FixedSetting
{
    const char16_t* name;
    const char16_t* value;
    bool persist;
};
constexpr FixedSetting FIXED[] = {
    { u"Current_Version", u"764", true },
    { u"User_Agent_String", GCLIENT_USER_AGENT, true },
    { u"Video_Privacy_Options_Mode", u"Public - Allow some people to see me, Private - Allow nobody to see me", false },
    { u"Video_Privacy_Options_Who", u"Only buddies who I can see, All my buddies", false },
    { u"Video_Privacy_Options_When", u"Always, Only when I'm talking", false },
};
struct DefaultSetting
{
    const char16_t* name;
    const char16_t* value;
};
constexpr DefaultSetting DEFAULTS[] = {
    { u"AUTHENTICATE_Host", u"127.0.0.1:443" },
    { u"NAT_Refresh_Period_S", u"1" },
    { u"CPU_Log_Threshold", u"90" },
    { u"Video_Size", u"48" },
    { u"UPnP_Low_Port", u"49152" },
    { u"UPnP_High_Port", u"65535" },
    { u"Screen_Share_Fullscreen_Delay", u"1000" },
    { u"Talk_Again_Hotkey", u"CONTROL+SPACE" },
    { u"Video_Privacy_Choice_Mode", GCLIENT_PUBLIC },
    { u"Video_Privacy_Choice_Who", u"Only buddies who I can see" },
    { u"Video_Privacy_Choice_When", u"Always" },
};
constexpr int VIDEO_SIZE_STEP = 16;
constexpr int LARGEST_VIDEO_SIZE = 1024;

bool isVideoSize( int64_t size )
{
    return size % VIDEO_SIZE_STEP == 0 && GWITHIN( VIDEO_SIZE_STEP, size, LARGEST_VIDEO_SIZE );
}
} // namespace

GClientOptions GClientOptionsRead( const GCommandLine& commandLine )
{
    const auto text = [&]( const char* name ) { return GUTF8ToWide( commandLine.get( name ) ); };
    GClientOptions options;
    options.settingsPath = text( "property" );
    if( options.settingsPath.empty( ) ) options.settingsPath = u"settings.ini";
    options.avi = text( "avi" );
    options.host = text( "host" );
    options.keepLogfiles = text( "keeplogfiles" );
    options.upgraded = commandLine.contains( "upgraded" );
    options.uploadlogfiles = commandLine.contains( "uploadlogfiles" );
    options.forceturn = commandLine.contains( "forceturn" );
    if( commandLine.contains( "reset" ) ) GFileDelete( options.settingsPath );
    return options;
}

GString GClientGetRestartArgs( const GCommandLine& commandLine )
{
    GString args = "-log x";
    bool isLeftOut = false; // The value of an option that is left out goes with it.
    std::istringstream tokens( commandLine.text( ) );
    for( GString token; std::getline( tokens, token, ' ' ); )
    {
        if( token.empty( ) ) continue;
        const bool isOption = token[0] == '-';
        const GString name = GToLower( token.substr( 1 ) );
        const bool wasLeftOut = isLeftOut;
        isLeftOut = isOption && ( name == "log" || name == "reset" || name == "upgraded" );
        if( !isLeftOut && ( isOption || !wasLeftOut ) ) args += " " + token;
    }
    return args;
}

void GClientSettingsApplyOptions( GInstance* instance, const GClientOptions& options )
{
    if( !options.avi.empty( ) ) instance->set( u"avi_source", options.avi );
    if( !options.host.empty( ) ) instance->set( u"AUTHENTICATE_Host", options.host );
    if( !options.keepLogfiles.empty( ) ) instance->set( u"Keep_Logfiles", options.keepLogfiles );
    if( options.uploadlogfiles ) instance->set( u"Exit_When_Logfiles_Uploaded", 1 );
    if( options.forceturn )
    {
        instance->set( u"Pretend_Firewall", 1 );
        instance->set( u"Disable_UDP_Recv", 1 );
    }
}

void GClientSettingsApplyDefaults( GInstance* instance )
{
    for( const FixedSetting& setting : FIXED ) instance->set( setting.name, setting.value, setting.persist );
    for( const DefaultSetting& setting : DEFAULTS )
        if( !instance->isSet( setting.name ) ) instance->set( setting.name, setting.value );
    if( instance->isSet( u"Local_User_GUID" ) )
        instance->set( u"Local_User_GUID", GSanitizeName( instance->get( u"Local_User_GUID" ) ), true );
    if( !isVideoSize( instance->calc( u"Video_Size" ) ) ) instance->set( u"Video_Size", VIDEO_SIZE_STEP );
}
