#include "client/skin/GSkinValues.h"

#include "base/GUtil.h"

namespace
{
constexpr GValueRow account_[] = {
    { u"Local_User_GUID", GValueUse::written, u"This user's id, as he logs on." },
    { u"Local_Username", GValueUse::written, u"The name for a new account." },
    { u"Local_Password", GValueUse::written, u"The password." },
    { u"Local_Email", GValueUse::written, u"The address for a new account." },
    { u"Logon_Status", GValueUse::shown, u"How logging on goes, or what is wrong with the form." },
    { u"Country_List", GValueUse::shown, u"Countries to choose from." },
};

constexpr GValueRow connection_[] = {
    { u"Client_Status", GValueUse::shown, u"In words: off line, connecting, on line." },
    { u"SIP_Status", GValueUse::shown, u"The signalling server." },
    { u"Dispatch_Status", GValueUse::shown, u"The service that tells which servers there are." },
    { u"Connection_Class", GValueUse::shown, u"What kind of network this is." },
    { u"SIP_Ping", GValueUse::shown, u"Milliseconds to the server and back." },
    { u"NAT_Refresh_Period_S", GValueUse::shown, u"How often the router must be reminded, in seconds." },
    { u"NAT_Mapping_Age", GValueUse::shown, u"For how long the router has kept its way open." },
    { u"Route_List", GValueUse::shown, u"The ways to the buddies." },
    { u"Local_Host", GValueUse::shown, u"This device's address." },
    { u"Global_Host", GValueUse::shown, u"The same as others see it." },
    { u"Global_SIP_Host", GValueUse::shown, u"The server's address." },
};

constexpr GValueRow buddies_[] = {
    { u"Local_Buddy_List", GValueUse::shown, u"The buddies." },
    { u"Combined_Buddy_Device_List", GValueUse::shown, u"Their devices." },
    { u"Talking_To_List", GValueUse::shown, u"Whom the user talks to now." },
    { u"Listening_To_List", GValueUse::shown, u"Who talks to the user now." },
    { u"Talk_Again_Buddy", GValueUse::shown, u"Whom the talk key reaches." },
    { u"Talking_Hands_Free", GValueUse::shown, u"1 while talking without a held key." },
    { u"Contact_Request_List", GValueUse::shown,
      u"Who asks to become a buddy, oldest first. Empty without the setting `Contact_Requests` and while off line." },
    { u"Contact_Request_Title", GValueUse::shown, u"How many ask, or what is being done, in words." },
    { u"Add_Buddy_GUID", GValueUse::written, u"Whom to add." },
    { u"Add_Buddy_Status", GValueUse::shown, u"How that goes." },
};

constexpr GValueRow buddy_[] = {
    { u"NAME_Online", GValueUse::shown, u"1 while he is on line." },
    { u"NAME_Offline", GValueUse::shown, u"1 while he is known to be off line." },
    { u"NAME_Image", GValueUse::shown, u"His picture." },
    { u"NAME_Image_BW", GValueUse::shown, u"His picture in grey." },
    { u"NAME_Device_List", GValueUse::shown, u"His devices." },
    { u"NAME_Time", GValueUse::shown, u"The time of day where he is." },
    { u"NAME_Audio_Enabled", GValueUse::shown, u"Whether he can be heard and can hear." },
    { u"NAME_Call_State", GValueUse::shown, u"`calling`, `ringing`, `talking`, `declined` or nothing." },
    { u"NAME_Call_Status", GValueUse::shown, u"The same in words." },
    { u"NAME_Chat_Queue", GValueUse::shown, u"What has been said in the chat." },
    { u"NAME_Chat_Status", GValueUse::shown, u"What he does there, in words." },
    { u"NAME_Prebuffer_MS", GValueUse::shown,
      u"Milliseconds from the arrival of his voice to the ear that are aimed at, with `Robust_Media`." },
    { u"NAME_Hotkey", GValueUse::shown, u"The talk key of that name." },
    { u"NAME_Gain", GValueUse::written, u"How loud he is heard, in per cent: 0 to 400, 100 when it is not set." },
};

constexpr GValueRow device_[] = {
    { u"NAME@DEVICE_Buddy", GValueUse::shown, u"Whose it is." },
    { u"NAME@DEVICE_Status", GValueUse::shown, u"How the connection stands." },
    { u"NAME@DEVICE_Ping", GValueUse::shown, u"Milliseconds there and back." },
    { u"NAME@DEVICE_Loss", GValueUse::shown, u"How much is lost on the way." },
    { u"NAME@DEVICE_Send_Route", GValueUse::shown, u"The way there." },
    { u"NAME@DEVICE_Recv_Route", GValueUse::shown, u"The way back." },
    { u"NAME@DEVICE_Audio_Enabled", GValueUse::shown, u"Whether sound goes." },
    { u"NAME@DEVICE_Video_Enabled", GValueUse::shown, u"Whether pictures go." },
    { u"NAME@DEVICE_Audio_Buffer_Length", GValueUse::shown, u"Sound that waits to be played." },
    { u"NAME@DEVICE_Video_Buffer_Length", GValueUse::shown, u"Pictures that wait to be shown." },
};

constexpr GValueRow capture_[] = {
    { u"Available_Audio_Capture_Devices", GValueUse::shown, u"Microphones to choose from." },
    { u"Available_Video_Capture_Devices", GValueUse::shown, u"Cameras to choose from." },
    { u"Audio_Capture_Device", GValueUse::written, u"The microphone." },
    { u"Video_Capture_Device", GValueUse::written, u"The camera." },
    { u"Audio_Capture_Online", GValueUse::shown, u"1 while the microphone works." },
    { u"Video_Capture_Online", GValueUse::shown, u"1 while the camera works." },
    { u"Audio_Capture_Status", GValueUse::shown, u"How it works, in words." },
    { u"Audio_Capture_Level", GValueUse::shown,
      u"How loud it is, 0 to 100, while the microphone is previewed or talked with." },
    { u"Voice_Treatment", GValueUse::written, u"Whether the microphone's sound is treated before it is sent." },
    { u"Voice_Echo", GValueUse::written, u"Part of that: 0 leaves the echo of the loudspeakers in it." },
    { u"Voice_Noise", GValueUse::written, u"0 leaves steady noise as it is." },
    { u"Voice_Level", GValueUse::written, u"0 leaves voices as loud as they are." },
    { u"Video_Capture_Status", GValueUse::shown, u"How it works, in words." },
    { u"Video_Capture_FSM_Status", GValueUse::shown, u"The same for developers." },
    { u"Local_Video_Image", GValueUse::shown, u"What the camera sees." },
    { u"Local_Audio_Image", GValueUse::shown, u"A picture of what the microphone hears." },
    { u"Video_Size", GValueUse::shown, u"The size of the pictures that are sent." },
    { u"Prebuffer_MS", GValueUse::shown, u"How much sound waits before it is played, in milliseconds." },
};

constexpr GValueRow privacy_[] = {
    { u"Video_Privacy_Options_Mode", GValueUse::shown, u"The texts to choose from." },
    { u"Video_Privacy_Options_Who", GValueUse::shown, u"The texts to choose from." },
    { u"Video_Privacy_Options_When", GValueUse::shown, u"The texts to choose from." },
    { u"Video_Privacy_Choice_Mode", GValueUse::written, u"Whether anybody sees the user." },
    { u"Video_Privacy_Choice_Who", GValueUse::written, u"Who." },
    { u"Video_Privacy_Choice_When", GValueUse::written, u"When." },
};

constexpr GValueRow program_[] = {
    { u"Misc_Hotkey_List", GValueUse::shown, u"The names of talk keys: `Talk_Again`, to which `_Hotkey` is put." },
    { u"Working_Hotkey", GValueUse::written, u"The combination that a `Hotkey` field takes." },
    { u"Talk_Again_Hotkey", GValueUse::shown, u"The talk key." },
    { u"Seconds_Until_Auto_Restart", GValueUse::shown, u"While the countdown runs." },
    { u"Current_Version", GValueUse::shown, u"This program's version." },
    { u"Bug_Report", GValueUse::written, u"A report for the maker." },
    { u"Bug_Report_Status", GValueUse::shown, u"How sending it goes." },
    { u"FSM_List", GValueUse::shown, u"State machines, for developers." },
    { u"Thread_List", GValueUse::shown, u"Threads, for developers." },
    { u"Process_CPU", GValueUse::shown, u"What the program takes of the processor." },
    { u"Log_Filter", GValueUse::written, u"What the log writes down." },
    { u"Debug_Name", GValueUse::written, u"The name of a value to look at." },
    { u"Debug_Value", GValueUse::written, u"The value." },
    { u"Debug_Result", GValueUse::shown, u"What was done with it." },
};

constexpr GValueGroup groups_[] = {
    { u"The account", account_ }, { u"The connection", connection_ },    { u"Lists of buddies", buddies_ },
    { u"Of one buddy", buddy_ },  { u"Of one of his devices", device_ }, { u"Camera and microphone", capture_ },
    { u"Who may see", privacy_ }, { u"The program", program_ },
};

constexpr GWStringView PLACES[] = { u"NAME@DEVICE", u"NAME" };

// The part of a row's name that is the same for all; the whole name of a value that there is once.
GWStringView getFixedPart( GWStringView name )
{
    for( const GWStringView place : PLACES )
        if( name.starts_with( place ) ) return name.substr( place.size( ) );
    return name;
}
} // namespace

std::span<const GValueGroup> GSkinValuesGet( )
{
    return groups_;
}

bool GSkinValuesContain( GWStringView name )
{
    for( const GValueGroup& group : groups_ )
    {
        for( const GValueRow& row : group.rows )
        {
            const GWStringView fixed = getFixedPart( row.name );
            if( fixed.size( ) > name.size( ) || ( fixed.size( ) == row.name.size( ) && fixed.size( ) != name.size( ) ) )
                continue;
            if( row.name.starts_with( u"NAME@DEVICE" ) && name.find( u'@' ) == GWStringView::npos ) continue;
            if( GCaseEquals( name.substr( name.size( ) - fixed.size( ) ), fixed ) ) return true;
        }
    }
    return false;
}

bool GSkinValuesIsWhole( GWStringView name )
{
    for( const GValueGroup& group : groups_ )
        for( const GValueRow& row : group.rows )
            if( getFixedPart( row.name ).size( ) == row.name.size( ) && GCaseEquals( row.name, name ) ) return true;
    return false;
}
