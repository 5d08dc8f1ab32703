#include "platform/capture/GAVCaptureDevices.h"

#include "base/GUtil.h"
#include "platform/sound/GSoundServer_Pulse.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace
{
constexpr int CODEC_SAMPLES = 160;

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

std::vector<Injected> listInjected( GCaptureKind kind )
{
    std::vector<Injected> devices;
    const char* text = std::getenv( "VELMORA_DEVICES" );
    for( const GWString& entry : GSplitList( GUTF8ToWide( text ? text : "" ), u";" ) )
    {
        const Injected device = parseInjected( entry );
        if( device.kind == kind && !device.name.empty( ) ) devices.push_back( device );
    }
    return devices;
}

// Where no sound server answers, nobody is asked for microphones: the library would try to start one.
bool isWorthAsking( GCaptureKind kind )
{
    if( kind == GCAPTURE_VIDEO ) return true;
    const GSoundServer::Lock lock;
    return GSoundServer::get( ).connect( );
}

bool isMonitor( GstDevice* device )
{
    GstStructure* properties = gst_device_get_properties( device );
    if( !properties ) return false;
    const gchar* kind = gst_structure_get_string( properties, "device.class" );
    const bool monitor = kind && g_strcmp0( kind, "monitor" ) == 0;
    gst_structure_free( properties );
    return monitor;
}

GWString friendlyName( GstDevice* device )
{
    gchar* name = gst_device_get_display_name( device );
    GWString wide = GUTF8ToWide( name ? name : "" );
    g_free( name );
    return wide;
}

// Calls `visit` with each device of the machine until it gives true.
template <typename Visit>
void forEachDevice( GCaptureKind kind, Visit visit )
{
    if( !isWorthAsking( kind ) ) return;
    GstDeviceMonitor* monitor = gst_device_monitor_new( );
    gst_device_monitor_add_filter( monitor, kind == GCAPTURE_AUDIO ? "Audio/Source" : "Video/Source", nullptr );
    if( gst_device_monitor_start( monitor ) )
    {
        GList* devices = gst_device_monitor_get_devices( monitor );
        bool found = false;
        for( GList* item = devices; item; item = item->next )
        {
            GstDevice* device = GST_DEVICE( item->data );
            if( !found && !isMonitor( device ) ) found = visit( device );
            gst_object_unref( device );
        }
        g_list_free( devices );
        gst_device_monitor_stop( monitor );
    }
    gst_object_unref( monitor );
}

// A number, a range or a list of numbers as its least and greatest.
void rangeOf( const GValue* value, double& least, double& greatest )
{
    least = 0;
    greatest = INT32_MAX;
    if( !value ) return;
    if( G_VALUE_HOLDS_INT( value ) )
        least = greatest = g_value_get_int( value );
    else if( GST_VALUE_HOLDS_INT_RANGE( value ) )
    {
        least = gst_value_get_int_range_min( value );
        greatest = gst_value_get_int_range_max( value );
    }
    else if( GST_VALUE_HOLDS_FRACTION( value ) )
        least = greatest = static_cast<double>( gst_value_get_fraction_numerator( value ) ) /
                           gst_value_get_fraction_denominator( value );
    else if( GST_VALUE_HOLDS_FRACTION_RANGE( value ) )
    {
        double ignored;
        rangeOf( gst_value_get_fraction_range_min( value ), least, ignored );
        rangeOf( gst_value_get_fraction_range_max( value ), ignored, greatest );
    }
    else if( GST_VALUE_HOLDS_LIST( value ) )
    {
        least = INT32_MAX;
        greatest = 0;
        for( guint i = 0; i < gst_value_list_get_size( value ); i++ )
        {
            double low, high;
            rangeOf( gst_value_list_get_value( value, i ), low, high );
            least = std::min( least, low );
            greatest = std::max( greatest, high );
        }
    }
}

double distanceOf( const GstStructure* offer, const char* field, double wanted )
{
    double least, greatest;
    rangeOf( gst_structure_get_value( offer, field ), least, greatest );
    return wanted < least ? least - wanted : wanted > greatest ? wanted - greatest : 0;
}

bool holdsFormat( const GstStructure* offer, const char* subtype )
{
    if( !gst_structure_has_name( offer, "video/x-raw" ) ) return false;
    const GValue* value = gst_structure_get_value( offer, "format" );
    if( !value ) return true;
    if( G_VALUE_HOLDS_STRING( value ) ) return g_strcmp0( g_value_get_string( value ), subtype ) == 0;
    for( guint i = 0; GST_VALUE_HOLDS_LIST( value ) && i < gst_value_list_get_size( value ); i++ )
        if( g_strcmp0( g_value_get_string( gst_value_list_get_value( value, i ) ), subtype ) == 0 ) return true;
    return false;
}
} // namespace

bool GCaptureInitialize( )
{
    static const bool good = gst_init_check( nullptr, nullptr, nullptr );
    return good;
}

GStringList GCaptureListDevices( GCaptureKind kind )
{
    GStringList names;
    for( const Injected& device : listInjected( kind ) ) names.push_back( device.name );
    forEachDevice( kind,
                   [&]( GstDevice* device )
                   {
                       if( names.size( ) < static_cast<size_t>( MAX_MONIKERS ) )
                           names.push_back( friendlyName( device ) );
                       return names.size( ) >= static_cast<size_t>( MAX_MONIKERS );
                   } );
    return names;
}

GstElement* GCaptureCreateSource( GCaptureKind kind, const GWString& name )
{
    GLOG( u"Enumerating devices in search of '", name, u"'" );
    for( const Injected& device : listInjected( kind ) )
    {
        if( device.name != name ) continue;
        GLOG( u"Found it, trying to bind..." );
        GError* error = nullptr;
        // A description may end in a bare format, which holds only between two elements.
        const GString description = device.pipeline + " ! identity";
        GstElement* source = gst_parse_bin_from_description( description.c_str( ), TRUE, &error );
        if( source && !error ) GLOG( u"Found it, Bound successful." );
        if( error ) GLOG( u"WARNING Unable to bind '", name, u"': ", error->message, u", ignoring." );
        g_clear_error( &error );
        return source;
    }
    GstElement* source = nullptr;
    forEachDevice( kind,
                   [&]( GstDevice* device )
                   {
                       if( friendlyName( device ) != name ) return false;
                       GLOG( u"Found it, trying to bind..." );
                       source = gst_device_create_element( device, nullptr );
                       if( source ) GLOG( u"Found it, Bound successful." );
                       return true;
                   } );
    if( !source || kind != GCAPTURE_AUDIO ) return source;
    GObjectClass* traits = G_OBJECT_GET_CLASS( source );
    if( g_object_class_find_property( traits, "buffer-time" ) )
        g_object_set( source, "buffer-time", gint64( 200000 ), nullptr );
    if( g_object_class_find_property( traits, "latency-time" ) )
        g_object_set( source, "latency-time", gint64( 50000 ), nullptr );
    return source;
}

bool GCaptureConfigureVideo( GstCaps* offered, const char* subtype, int fps, int width, int height, GstCaps*& picked )
{
    GLOG( u"Configuring Video Device: FPS=", fps, u", width=", width, u", height=", height );
    int nearest = -1;
    double least = 0;
    for( guint i = 0; i < gst_caps_get_size( offered ); i++ )
    {
        const GstStructure* offer = gst_caps_get_structure( offered, i );
        if( !holdsFormat( offer, subtype ) ) continue;
        const double distance = distanceOf( offer, "width", width ) + distanceOf( offer, "height", height ) +
                                distanceOf( offer, "framerate", fps );
        if( nearest >= 0 && distance >= least ) continue;
        nearest = static_cast<int>( i );
        least = distance;
        GLOG( u"New nearest match with #", i, u": FPS=", fps, u", distance=", distance, u", subtype='", subtype, u"'" );
    }
    if( nearest < 0 )
    {
        GLOG( u"WARNING No match found" );
        return false;
    }
    GstStructure* choice = gst_structure_copy( gst_caps_get_structure( offered, static_cast<guint>( nearest ) ) );
    gst_structure_set( choice, "format", G_TYPE_STRING, subtype, nullptr );
    if( !gst_structure_fixate_field_nearest_int( choice, "width", width ) &&
        !gst_structure_has_field( choice, "width" ) )
        gst_structure_set( choice, "width", G_TYPE_INT, width, nullptr );
    if( !gst_structure_fixate_field_nearest_int( choice, "height", height ) &&
        !gst_structure_has_field( choice, "height" ) )
        gst_structure_set( choice, "height", G_TYPE_INT, height, nullptr );
    if( !gst_structure_fixate_field_nearest_fraction( choice, "framerate", fps, 1 ) &&
        !gst_structure_has_field( choice, "framerate" ) )
        gst_structure_set( choice, "framerate", GST_TYPE_FRACTION, fps, 1, nullptr );
    gchar* text = gst_structure_to_string( choice );
    GLOG( u"Done: Picked #", nearest, u".  Configuring to( fps=", fps, u" ): ", text );
    g_free( text );
    picked = gst_caps_new_full( choice, nullptr );
    return true;
}

int GCaptureChunkBytes( int frequency, int bytesPerSample, int latency )
{
    const int FRAME_SIZE = bytesPerSample * CODEC_SAMPLES;
    const int wanted = static_cast<int>( static_cast<int64_t>( frequency ) * bytesPerSample * latency / 1000 );
    const int cbBuffer = ( wanted + FRAME_SIZE - 1 ) / FRAME_SIZE * FRAME_SIZE;
    GASSERT_TEXT( !( cbBuffer % FRAME_SIZE ), "!(allocatorProperties.cbBuffer%FRAME_SIZE)" );
    return cbBuffer;
}
