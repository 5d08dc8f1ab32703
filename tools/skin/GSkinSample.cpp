#include "GSkinSample.h"

#include "client/drawing/GImageTools.h"

namespace
{
struct Setting
{
    const char16_t* name;
    const char16_t* value;
};
constexpr Setting SETTINGS[] = {
    { u"Client_Status", u"Online" },
    { u"Logon_Status", u"-- Missing name or password --" },
    { u"Local_User_GUID", u"ada@example.org" },
    { u"Local_Username", u"ada" },
    { u"Local_Password", u"secret" },
    { u"Local_Email", u"ada@example.org" },
    { u"Default_Domain", u"example.org" },
    { u"Add_Buddy_GUID", u"grace" },
    { u"Add_Buddy_Status", u"Verifying..." },
    { u"Contact_Request_List", u"alan@example.org" },
    { u"Contact_Request_Title", u"1 contact request" },
    { u"Talk_Again_Hotkey", u"CONTROL+SPACE" },
    { u"Seconds_Until_Auto_Restart", u"24" },
    { u"Connection_Class", u"RESTRICTED" },
    { u"Local_Host", u"192.168.1.20:40100" },
    { u"Global_SIP_Host", u"198.51.100.4:5060" },
    { u"SIP_Ping", u"24ms" },
    { u"Route_List", u"192.168.1.20:40100, 192.0.2.7:40100" },
    { u"SIP_Status", u"Online" },
    { u"Dispatch_Status", u"Online" },
    { u"FSM_List", u"Client,SIP,Dispatch" },
    { u"Thread_List", u"main, GClient.GSIPService, GClient.GVideoCaptureService, GClient.GVideoPlaybackService, "
                      u"GClient.GDispatchService" },
    { u"main_CPU", u"0.42%" },
    { u"GClient.GSIPService_CPU", u"0.08%" },
    { u"GClient.GVideoCaptureService_CPU", u"1.31%" },
    { u"GClient.GVideoPlaybackService_CPU", u"0.95%" },
    { u"GClient.GDispatchService_CPU", u"0.02%" },
    { u"Process_CPU", u"2.78%" },
    { u"Combined_Buddy_Device_List", u"grace@example.org@d3f0c1, linus@example.org@77ab02" },
    { u"grace@example.org@d3f0c1_Status", u"CONNECTED" },
    { u"grace@example.org@d3f0c1_Ping", u"31±2ms" },
    { u"grace@example.org@d3f0c1_Loss", u"0.00% (0/412)" },
    { u"grace@example.org@d3f0c1_Send_Route", u"203.0.113.9:40100" },
    { u"linus@example.org@77ab02_Status", u"WF_INVITERESPONSE" },
    { u"Misc_Hotkey_List", u"Talk_Again" },
    { u"Talk_Again_Title", u"Whoever you talked to last" },
    { u"Talk_Key_Choice", u"Talk_Again" },
    { u"grace@example.org_Hotkey", u"CONTROL+SHIFT+G" },
    { u"linus@example.org_Hotkey", u"<key combination in use>" },
    { u"Working_Hotkey", u"    (click here and press keys)" },
    { u"Skin_Palette", u"Dusk" },
    { u"Skin_Scale", u"desktop" },
    { u"File_Choice", u"recv_1" },
    { u"Global_Host", u"192.0.2.7:40100" },
    { u"Current_Version", u"764" },
    { u"Audio_Capture_Online", u"1" },
    { u"Audio_Capture_Level", u"71" },
    { u"Video_Capture_Online", u"1" },
    { u"Audio_Capture_Status", u"Online" },
    { u"Video_Capture_Status", u"Online" },
    { u"Available_Video_Capture_Devices", u"Integrated camera, USB camera, (none - disable video capture)" },
    { u"Available_Audio_Capture_Devices", u"Built-in microphone, Headset, (none - disable audio capture)" },
    { u"Video_Capture_Device", u"USB camera" },
    { u"Audio_Capture_Device", u"Headset" },
    { u"Video_Privacy_Options_Mode", u"Public - Allow some people to see me, Private - Allow nobody to see me" },
    { u"Video_Privacy_Options_Who", u"Only buddies who I can see, All my buddies" },
    { u"Video_Privacy_Options_When", u"Always, Only when I'm talking" },
    { u"Video_Privacy_Choice_Mode", u"Public - Allow some people to see me" },
    { u"Video_Privacy_Choice_Who", u"All my buddies" },
    { u"Video_Privacy_Choice_When", u"Always" },
    { u"File_Send_List", u"send_1, send_2" },
    { u"send_1_Filename", u"holiday pictures.zip" },
    { u"send_1_Size", u"48.2MB" },
    { u"send_1_Speed", u"1.2MB/s" },
    { u"send_1_Complete", u"37%" },
    { u"send_2_Filename", u"notes.txt" },
    { u"send_2_Size", u"4.1KB" },
    { u"send_2_Speed", u"--BPS" },
    { u"send_2_Complete", u"Scanning..." },
    { u"File_Recv_List", u"recv_1" },
    { u"recv_1_Filename", u"a rather long name of a file that somebody sent to me today.pdf" },
    { u"recv_1_Size", u"812KB" },
    { u"recv_1_Speed", u"90KB/s" },
    { u"recv_1_Complete", u"82%" },
};
constexpr const char16_t* NAMES[] = { u"grace@example.org",
                                      u"linus@example.org",
                                      u"margaret@example.org",
                                      u"dennis@example.org",
                                      u"barbara@example.org",
                                      u"katherine@other.org",
                                      u"a-name-of-forty-letters-is-quite-a-thing@x.org",
                                      u"ken@example.org" };
constexpr int NAME_COUNT = sizeof( NAMES ) / sizeof( NAMES[0] );

void addChat( GInstance* instance, const GWString& buddy, GWStringView from, const char* text )
{
    GHTTPHeaders message( u"CHAT" );
    message.set( u"From", from );
    message.addContent( GString( text ) );
    instance->enqueue( buddy + u"_Chat_Queue", message );
}

void addBuddy( GInstance* instance, const GWString& buddy, bool online, bool picture, bool chats )
{
    instance->insert( u"Local_Buddy_List", buddy );
    instance->set( buddy + u"_Name", buddy.substr( 0, buddy.find( u'@' ) ) );
    instance->set( buddy + ( online ? u"_Online" : u"_Offline" ), 1 );
    GImageFormat format;
    GRect rect;
    const GWString source = picture ? u"defaultprofile_av.png" : u"defaultprofile.png";
    if( GImageTools_instanceReadCheck( instance, source, format, rect ) )
        GImageTools_instanceCopy( instance, source, buddy + u"_Image" );
    instance->set( buddy + u"_Call_Status", u"Calling " + buddy + u"..." );
    instance->set( buddy + u"_Call_State", u"calling" );
    if( online ) instance->set( buddy + u"_Audio_Enabled", 1 );
    if( !chats || instance->length( buddy + u"_Chat_Queue" ) > 0 ) return;
    addChat( instance, buddy, buddy, "Good morning! Did the new build work for you?" );
    addChat( instance, buddy, u"ada@example.org",
             "It did. The picture is much steadier now, also over the slow line." );
    addChat( instance, buddy, buddy, "Very good. Then let us talk at ten, and show me the screen with the figures." );
}
} // namespace

void GSkinFillSample( GInstance* instance, int buddies, bool chats )
{
    for( const Setting& setting : SETTINGS ) instance->set( setting.name, setting.value );
    for( int i = 0; i < buddies; ++i )
    {
        const GWString name = NAMES[i % NAME_COUNT];
        addBuddy( instance, i < NAME_COUNT ? name : GConcat( u"b", i, name ), i % 3 != 2, i % 2 == 0, chats );
    }
    if( buddies > 0 ) instance->set( u"Talking_To_List", NAMES[0] );
    GImageFormat format;
    GRect rect;
    if( GImageTools_instanceReadCheck( instance, u"defaultprofile_av.png", format, rect ) )
        GImageTools_instanceCopy( instance, u"defaultprofile_av.png", u"Local_Video_Image" );
}
