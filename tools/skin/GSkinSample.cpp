#include "GSkinSample.h"

#include "base/GUtil.h"
#include "client/drawing/GImageTools.h"

#include <algorithm>

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
    { u"Voice_Treatment", u"1" },
    { u"Voice_Noise", u"0" },
    { u"grace@example.org_Gain", u"150" },
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
// One row a sample day: how it differs from the plain one.
struct Day
{
    const char* name;
    int buddies;
    void ( *change )( GInstance& instance, const GWString& buddy );
};

void clearForms( GInstance& instance )
{
    for( const char16_t* name : { u"Logon_Status", u"Add_Buddy_GUID", u"Add_Buddy_Status", u"Contact_Request_List",
                                  u"Contact_Request_Title", u"File_Send_List", u"File_Recv_List", u"Talking_To_List" } )
        instance.set( name, u"" );
}

void makeLong( GInstance& instance, const GWString& buddy )
{
    const GWString name = u"A Name Of Forty Letters Is Quite A Thing";
    instance.set( buddy + u"_Name", name );
    instance.set( buddy + u"_Call_Status", u"Calling " + name + u" on each of his devices, which may take a while..." );
    instance.set( u"Client_Status", u"Online, and glad to tell so at some length" );
    instance.set( u"Logon_Status",
                  u"-- The server could not be reached; it is tried again every minute until it answers --" );
    instance.set( u"Add_Buddy_Status",
                  u"Nobody of that name is known here, neither on this server nor on the other one." );
    instance.set( u"Contact_Request_List", u"someone-with-a-very-long-name-indeed@a-rather-long-domain.example.org" );
    instance.set( u"Audio_Capture_Device", u"Built-in microphone of the monitor on the left side of the desk" );
    instance.set( u"Talk_Again_Hotkey", u"CONTROL+SHIFT+ALT+PAGE DOWN" );
}

void makeRightToLeft( GInstance& instance, const GWString& buddy )
{
    instance.set( buddy + u"_Name", u"\u05D3\u05E0\u05D4 \u05DC\u05D5\u05D9" );
    instance.set( buddy + u"_Call_Status", u"\u05DE\u05EA\u05E7\u05E9\u05E8 \u05D0\u05DC \u05D3\u05E0\u05D4..." );
    instance.set( u"Client_Status", u"\u05DE\u05D7\u05D5\u05D1\u05E8" );
    instance.set( u"Logon_Status",
                  u"\u05E9\u05DD \u05D0\u05D5 \u05E1\u05D9\u05E1\u05DE\u05D4 \u05D7\u05E1\u05E8\u05D9\u05DD" );
    instance.set( u"Add_Buddy_Status", u"\u05DE\u05D0\u05DE\u05EA..." );
    if( instance.length( buddy + u"_Chat_Queue" ) > 0 )
        addChat( &instance, buddy, buddy, "\u05E9\u05DC\u05D5\u05DD! \u05DE\u05D4 \u05E9\u05DC\u05D5\u05DE\u05DA?" );
}

void makeWrong( GInstance& instance, const GWString& buddy )
{
    instance.set( u"Client_Status", u"Offline" );
    instance.set( u"Logon_Status", u"-- Invalid name (a-z0-9@_.-) --" );
    instance.set( u"Add_Buddy_Status", u"You gots to type first, dawg." );
    instance.set( u"Bug_Report_Status", u"Please enter bug report or suggestion." );
    instance.set( u"Audio_Capture_Online", u"0" );
    instance.set( u"Video_Capture_Online", u"0" );
    instance.set( u"Audio_Capture_Status", u"The microphone cannot be opened" );
    instance.set( u"Video_Capture_Status", u"The camera cannot be opened" );
    instance.set( u"Talk_Again_Hotkey", u"<key combination in use>" );
    instance.set( buddy + u"_Call_State", u"declined" );
    instance.set( buddy + u"_Call_Status", u"Call declined: busy" );
}

void makeOffline( GInstance& instance, const GWString& )
{
    instance.set( u"Client_Status", u"Offline" );
    instance.set( u"Talking_To_List", u"" );
    GStringList buddies;
    instance.get( u"Local_Buddy_List", buddies );
    for( const GWString& buddy : buddies )
    {
        instance.set( buddy + u"_Online", u"0" );
        instance.set( buddy + u"_Offline", u"1" );
    }
}

void makeCall( GInstance& instance, const GWString& buddy, const char16_t* state, const GWString& status )
{
    instance.set( buddy + u"_Call_State", state );
    instance.set( buddy + u"_Call_Status", status );
}

constexpr Day DAYS[] = {
    { "day", 6, []( GInstance&, const GWString& ) {} },
    { "empty", 0, []( GInstance& instance, const GWString& ) { clearForms( instance ); } },
    { "one", 1, []( GInstance& instance, const GWString& ) { clearForms( instance ); } },
    { "forty", 40, []( GInstance&, const GWString& ) {} },
    { "long", 8, makeLong },
    { "rtl", 6, makeRightToLeft },
    { "error", 6, makeWrong },
    { "offline", 6, makeOffline },
    { "ringing", 6,
      []( GInstance& instance, const GWString& buddy )
      { makeCall( instance, buddy, u"ringing", buddy + u" is calling" ); } },
    { "calling", 6,
      []( GInstance& instance, const GWString& buddy )
      { makeCall( instance, buddy, u"calling", u"Calling " + buddy + u"..." ); } },
    { "talking", 6,
      []( GInstance& instance, const GWString& buddy ) { makeCall( instance, buddy, u"talking", u"" ); } },
};
} // namespace

bool GSkinFillSample( GInstance* instance, const GString& sample, int buddies, bool chats )
{
    const Day* day = std::ranges::find( DAYS, sample, []( const Day& row ) { return GString( row.name ); } );
    if( day == std::end( DAYS ) ) return false;
    if( buddies < 0 ) buddies = day->buddies;
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
    day->change( *instance, NAMES[0] );
    return true;
}

bool GSkinFillFile( GInstance* instance, const GString& file )
{
    GString text;
    if( !GFileLoad( GUTF8ToWide( file ), text ) ) return false;
    for( const GWString& line : GSplitList( GUTF8ToWide( text ), u"\r\n" ) )
    {
        const size_t colon = line.find( u':' );
        if( line.front( ) != u'#' && colon != GWString::npos )
            instance->set( GTrim( line.substr( 0, colon ) ), GTrim( line.substr( colon + 1 ) ) );
    }
    return true;
}
