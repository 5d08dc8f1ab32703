#include "platform/capture/GAVCaptureDevices.h"

#include "base/GUtil.h"
#include "platform/sound/GSoundServer_Pulse.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>

namespace
{
// The property of sources that a sound server may move to another device.
constexpr const char* CURRENT_DEVICE = "current-device";

struct Injected
{
    GCaptureKind kind;
    GWString name;
    GString pipeline;
};

Injected parseInjected( const GWString& entry )
{
    const size_t equals = entry.find( u'=' );
    Injected device{ GCAPTURE_VIDEO, GTrim( GWStringView( entry ).substr( 0, equals ) ), "" };
    if( equals != GWString::npos ) device.pipeline = GWideToUTF8( GWStringView( entry ).substr( equals + 1 ) );
    const bool audio = device.name.starts_with( u"audio:" );
    if( audio || device.name.starts_with( u"video:" ) )
    {
        device.name = GTrim( GWStringView( device.name ).substr( 6 ) );
        device.kind = audio ? GCAPTURE_AUDIO : GCAPTURE_VIDEO;
    }
    else if( device.name == u"tone microphone" || device.pipeline.find( "audio" ) != GString::npos ||
             device.pipeline.find( "pulse" ) != GString::npos )
        device.kind = GCAPTURE_AUDIO;
    if( !device.pipeline.empty( ) ) return device;
    device.pipeline = device.kind == GCAPTURE_AUDIO ? "audiotestsrc is-live=true wave=sine freq=500 volume=0.5"
                                                    : "videotestsrc is-live=true pattern=ball";
    return device;
}

// What the environment says of injected devices; a file of them may hold this much.
GString readInjected( )
{
    constexpr std::uintmax_t GREATEST_FILE = 1 << 16;
    const char* text = std::getenv( "VELMORA_DEVICES" );
    const GString path = GCaptureListFile( );
    if( path.empty( ) ) return text ? text : "";
    std::error_code error;
    GString entries;
    if( std::filesystem::is_regular_file( path, error ) && std::filesystem::file_size( path, error ) <= GREATEST_FILE &&
        !error )
        GFileLoad( GUTF8ToWide( path ), entries );
    std::replace( entries.begin( ), entries.end( ), '\n', ';' );
    return entries;
}

std::vector<Injected> listInjected( GCaptureKind kind )
{
    std::vector<Injected> devices;
    for( const GWString& entry : GSplitList( GUTF8ToWide( readInjected( ) ), u";" ) )
    {
        Injected device = parseInjected( entry );
        device.name = GCaptureFriendlyName( device.name );
        if( device.kind == kind && !device.name.empty( ) ) devices.push_back( device );
    }
    return devices;
}

// Where no sound server answers, nobody is asked for microphones: the library would try to start one, or wait without end.
bool isWorthAsking( GCaptureKind kind )
{
    if( kind == GCAPTURE_VIDEO ) return true;
    return GCaptureIsServerThere( );
}

bool isMonitor( GstDevice* device )
{
    GstStructure* properties = gst_device_get_properties( device );
    if( !properties ) return false;
    const bool monitor = g_strcmp0( gst_structure_get_string( properties, "device.class" ), "monitor" ) == 0;
    gst_structure_free( properties );
    return monitor;
}

GWString friendlyName( GstDevice* device )
{
    gchar* name = gst_device_get_display_name( device );
    GWString wide = GCaptureFriendlyName( GUTF8ToWide( name ? name : "" ) );
    g_free( name );
    return wide;
}

// An element of an injected device. Its description may end in a bare format, which holds only between two elements.
GstElement* bindInjected( const Injected& device )
{
    GError* error = nullptr;
    const GString description = device.pipeline + " ! identity";
    GstElement* source = gst_parse_bin_from_description( description.c_str( ), TRUE, &error );
    if( error )
    {
        GLOG( u"WARNING Unable to bind '", device.name, u"': ", error->message, u", ignoring." );
        if( source ) gst_object_unref( source );
        source = nullptr;
    }
    g_clear_error( &error );
    return source;
}

// Calls `visit` with the name of each device and the way to bind it until it gives true.
using Bind = std::function<GstElement*( )>;
using Visit = std::function<bool( const GWString& name, const Bind& bind )>;

// False when the visit wants no more.
bool visitMachine( GCaptureKind kind, const Visit& visit )
{
    if( !isWorthAsking( kind ) ) return true;
    GstDeviceMonitor* monitor = gst_device_monitor_new( );
    gst_device_monitor_add_filter( monitor, kind == GCAPTURE_AUDIO ? "Audio/Source" : "Video/Source", nullptr );
    bool going = true;
    if( gst_device_monitor_start( monitor ) )
    {
        GList* devices = gst_device_monitor_get_devices( monitor );
        for( GList* item = devices; item; item = item->next )
        {
            GstDevice* device = GST_DEVICE( item->data );
            const auto bind = [device] { return gst_device_create_element( device, nullptr ); };
            if( going && !isMonitor( device ) ) going = !visit( friendlyName( device ), bind );
            gst_object_unref( device );
        }
        g_list_free( devices );
        gst_device_monitor_stop( monitor );
    }
    gst_object_unref( monitor );
    return going;
}

// The first MAX_MONIKERS devices, injected ones first.
void forEachDevice( GCaptureKind kind, const Visit& visit )
{
    int seen = 0;
    const Visit counted = [&]( const GWString& name, const Bind& bind )
    { return visit( name, bind ) || ++seen >= MAX_MONIKERS; };
    for( const Injected& device : listInjected( kind ) )
        if( counted( device.name, [&device] { return bindInjected( device ); } ) ) return;
    visitMachine( kind, counted );
}

// Small steps, so that what is said arrives soon.
void setPace( GstElement* source, int step )
{
    GObjectClass* traits = G_OBJECT_GET_CLASS( source );
    if( g_object_class_find_property( traits, "buffer-time" ) )
        g_object_set( source, "buffer-time", gint64( 200000 ), nullptr );
    if( g_object_class_find_property( traits, "latency-time" ) )
        g_object_set( source, "latency-time", gint64( step ), nullptr );
}
} // namespace

bool GCaptureInitialize( )
{
    // While it loads plugins the library would take faults of any thread for a plugin's and end the process without a word of ours.
    static const bool good = []( )
    {
        gst_segtrap_set_enabled( FALSE );
        return gst_init_check( nullptr, nullptr, nullptr ) != FALSE;
    }( );
    return good;
}

bool GCaptureIsFile( const GWString& name )
{
    std::error_code error;
    return !name.empty( ) && std::filesystem::is_regular_file( std::filesystem::path( GWideToUTF8( name ) ), error );
}

GStringList GCaptureListDevices( GCaptureKind kind )
{
    GStringList names;
    forEachDevice( kind,
                   [&]( const GWString& name, const Bind& )
                   {
                       names.push_back( name );
                       return false;
                   } );
    return names;
}

GstElement* GCaptureCreateSource( GCaptureKind kind, const GWString& name, int step )
{
    GLOG( u"Enumerating devices in search of '", name, u"'" );
    GstElement* source = nullptr;
    forEachDevice( kind,
                   [&]( const GWString& found, const Bind& bind )
                   {
                       if( found != name ) return false;
                       GLOG( u"Found it, trying to bind..." );
                       source = bind( );
                       if( source ) GLOG( u"Found it, Bound successful." );
                       return true;
                   } );
    if( source && kind == GCAPTURE_AUDIO ) setPace( source, step );
    return source;
}

bool GCaptureIsPresent( GstElement* source )
{
    if( !g_object_class_find_property( G_OBJECT_GET_CLASS( source ), CURRENT_DEVICE ) ) return true;
    gchar* device = nullptr;
    g_object_get( source, "device", &device, nullptr );
    if( !device ) return true;
    const GSoundServer::Lock lock;
    const bool present = GSoundServer::get( ).hasSource( device );
    g_free( device );
    return present;
}

GString GCaptureListFile( )
{
    const char* text = std::getenv( "VELMORA_DEVICES" );
    return text && *text == '@' ? text + 1 : "";
}

bool GCaptureIsServerThere( )
{
    const GSoundServer::Lock lock;
    return GSoundServer::get( ).isAnswering( );
}

void GCaptureWatchSources( void ( *changed )( void* ), void* argument )
{
    const GSoundServer::Lock lock;
    GSoundServer::get( ).watchSources( changed, argument );
}
