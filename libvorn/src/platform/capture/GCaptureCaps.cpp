#include "platform/capture/GCaptureCaps.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace
{
constexpr const char* RAW_VIDEO = "video/x-raw";
constexpr const char* RAW_AUDIO = "audio/x-raw";
constexpr double UNBOUNDED = INT32_MAX;

// A number, a range or a list of numbers as its least and greatest; anything goes where nothing is said.
GCaptureRange rangeOf( const GValue* value )
{
    if( !value ) return { 0, UNBOUNDED };
    if( G_VALUE_HOLDS_INT( value ) )
        return { static_cast<double>( g_value_get_int( value ) ), static_cast<double>( g_value_get_int( value ) ) };
    if( GST_VALUE_HOLDS_INT_RANGE( value ) )
        return { static_cast<double>( gst_value_get_int_range_min( value ) ),
                 static_cast<double>( gst_value_get_int_range_max( value ) ) };
    if( GST_VALUE_HOLDS_FRACTION( value ) )
    {
        const int denominator = std::max( 1, gst_value_get_fraction_denominator( value ) );
        const double rate = static_cast<double>( gst_value_get_fraction_numerator( value ) ) / denominator;
        return { rate, rate };
    }
    if( GST_VALUE_HOLDS_FRACTION_RANGE( value ) )
        return { rangeOf( gst_value_get_fraction_range_min( value ) ).least,
                 rangeOf( gst_value_get_fraction_range_max( value ) ).greatest };
    if( !GST_VALUE_HOLDS_LIST( value ) || !gst_value_list_get_size( value ) ) return { 0, UNBOUNDED };
    GCaptureRange range = rangeOf( gst_value_list_get_value( value, 0 ) );
    for( guint i = 1; i < gst_value_list_get_size( value ); i++ )
    {
        const GCaptureRange item = rangeOf( gst_value_list_get_value( value, i ) );
        range = { std::min( range.least, item.least ), std::max( range.greatest, item.greatest ) };
    }
    return range;
}

// A format or a list of formats; the empty name where nothing is said.
std::vector<GString> namesOf( const GValue* value )
{
    if( value && G_VALUE_HOLDS_STRING( value ) ) return { g_value_get_string( value ) };
    if( !value || !GST_VALUE_HOLDS_LIST( value ) ) return { "" };
    std::vector<GString> names;
    for( guint i = 0; i < gst_value_list_get_size( value ); i++ )
        for( const GString& name : namesOf( gst_value_list_get_value( value, i ) ) ) names.push_back( name );
    return names;
}

bool isPlainMemory( const GstCaps* caps, guint index )
{
    const GstCapsFeatures* features = gst_caps_get_features( caps, index );
    return !features || ( !gst_caps_features_is_any( features ) &&
                          gst_caps_features_is_equal( features, GST_CAPS_FEATURES_MEMORY_SYSTEM_MEMORY ) );
}

GString subtypeOf( const GString& libraryName )
{
    return libraryName == "RGB" ? "RGB24" : libraryName;
}

// Bits a sample of a list of formats, of whole numbers in the byte order that the taps want.
GCaptureRange bitsOf( const std::vector<GString>& names )
{
    GCaptureRange range{ UNBOUNDED, 0 };
    for( const GString& name : names )
    {
        const GstAudioFormatInfo* info = gst_audio_format_get_info( gst_audio_format_from_string( name.c_str( ) ) );
        if( !name.empty( ) && ( !info || !GST_AUDIO_FORMAT_INFO_IS_INTEGER( info ) ) ) continue;
        const double bits = name.empty( ) ? 16 : GST_AUDIO_FORMAT_INFO_DEPTH( info );
        range = { std::min( range.least, bits ), std::max( range.greatest, bits ) };
    }
    return range;
}

// The letters of a format's name as a compression, the first one lowest.
uint32_t lettersOf( const char* name )
{
    uint32_t letters = 0;
    for( size_t i = 0; name && name[i] && i < sizeof( letters ); i++ )
        letters |= static_cast<uint32_t>( static_cast<unsigned char>( name[i] ) ) << ( 8 * i );
    return letters;
}

struct Layout
{
    GstVideoFormat format;
    uint32_t compression;
    int bitCount;
    uint32_t redMask;
    uint32_t greenMask;
};
constexpr Layout LAYOUTS[] = {
    { GST_VIDEO_FORMAT_YUY2, GBC_YUY2, 16, 0, 0 },
    { GST_VIDEO_FORMAT_RGB, GBC_BITFIELDS, 24, 0x0000FF, 0x00FF00 },
    { GST_VIDEO_FORMAT_BGR, GBC_BITFIELDS, 24, 0xFF0000, 0x00FF00 },
    { GST_VIDEO_FORMAT_RGB16, GBC_BITFIELDS, 16, 0xF800, 0x07E0 },
    { GST_VIDEO_FORMAT_RGB15, GBC_BITFIELDS, 16, 0x7C00, 0x03E0 },
    { GST_VIDEO_FORMAT_RGBx, GBC_BITFIELDS, 32, 0x0000FF, 0x00FF00 },
    { GST_VIDEO_FORMAT_RGBA, GBC_BITFIELDS, 32, 0x0000FF, 0x00FF00 },
    { GST_VIDEO_FORMAT_BGRx, GBC_BITFIELDS, 32, 0xFF0000, 0x00FF00 },
    { GST_VIDEO_FORMAT_BGRA, GBC_BITFIELDS, 32, 0xFF0000, 0x00FF00 },
};
} // namespace

std::vector<GCaptureVideoCapability> GCaptureReadVideo( const GstCaps* offered )
{
    std::vector<GCaptureVideoCapability> capabilities;
    if( gst_caps_is_any( offered ) ) return capabilities;
    for( guint i = 0; i < gst_caps_get_size( offered ); i++ )
    {
        const GstStructure* offer = gst_caps_get_structure( offered, i );
        GCaptureVideoCapability capability;
        capability.isVideo = g_str_has_prefix( gst_structure_get_name( offer ), "video/" ) ||
                             g_str_has_prefix( gst_structure_get_name( offer ), "image/" );
        capability.isPlain = gst_structure_has_name( offer, RAW_VIDEO ) && isPlainMemory( offered, i );
        capability.width = rangeOf( gst_structure_get_value( offer, "width" ) );
        capability.height = rangeOf( gst_structure_get_value( offer, "height" ) );
        capability.fps = rangeOf( gst_structure_get_value( offer, "framerate" ) );
        for( const GString& name : namesOf( gst_structure_get_value( offer, "format" ) ) )
        {
            // A source that says nothing of pixel formats takes the first that is wanted.
            capability.subtype = name.empty( ) ? "YUY2" : subtypeOf( name );
            capabilities.push_back( capability );
        }
    }
    return capabilities;
}

std::vector<GCaptureAudioCapability> GCaptureReadAudio( const GstCaps* offered )
{
    std::vector<GCaptureAudioCapability> capabilities;
    if( gst_caps_is_any( offered ) ) return capabilities;
    for( guint i = 0; i < gst_caps_get_size( offered ); i++ )
    {
        const GstStructure* offer = gst_caps_get_structure( offered, i );
        GCaptureAudioCapability capability;
        capability.isAudio = g_str_has_prefix( gst_structure_get_name( offer ), "audio/" );
        capability.isPCM = gst_structure_has_name( offer, RAW_AUDIO );
        const GString layout = namesOf( gst_structure_get_value( offer, "layout" ) ).front( );
        capability.isPlain = ( layout.empty( ) || layout == "interleaved" ) && isPlainMemory( offered, i );
        capability.bits = bitsOf( namesOf( gst_structure_get_value( offer, "format" ) ) );
        capability.frequency = rangeOf( gst_structure_get_value( offer, "rate" ) );
        capabilities.push_back( capability );
    }
    return capabilities;
}

// Each structure gave as many capabilities as it has formats.
GstCaps* GCaptureNarrow( const GstCaps* offered, const GCaptureVideoChoice& choice )
{
    guint structure = 0;
    for( int left = choice.index; structure + 1 < gst_caps_get_size( offered ); structure++ )
    {
        const GstStructure* offer = gst_caps_get_structure( offered, structure );
        const int formats = static_cast<int>( namesOf( gst_structure_get_value( offer, "format" ) ).size( ) );
        if( left < formats ) break;
        left -= formats;
    }
    GstStructure* narrow = gst_structure_copy( gst_caps_get_structure( offered, structure ) );
    gst_structure_set( narrow, "format", G_TYPE_STRING, GCaptureLibraryName( choice.subtype ), nullptr );
    const auto fit = [narrow]( const char* field, int value )
    {
        if( !gst_structure_has_field( narrow, field ) )
            gst_structure_set( narrow, field, G_TYPE_INT, value, nullptr );
        else
            gst_structure_fixate_field_nearest_int( narrow, field, value );
    };
    fit( "width", choice.width );
    fit( "height", choice.height );
    int numerator = 0;
    int denominator = 1;
    gst_util_double_to_fraction( choice.fps, &numerator, &denominator );
    if( !gst_structure_has_field( narrow, "framerate" ) )
        gst_structure_set( narrow, "framerate", GST_TYPE_FRACTION, numerator, denominator, nullptr );
    else
        gst_structure_fixate_field_nearest_fraction( narrow, "framerate", numerator, denominator );
    return gst_caps_new_full( narrow, nullptr );
}

GstCaps* GCaptureNarrow( int frequency )
{
    return gst_caps_new_simple( RAW_AUDIO, "format", G_TYPE_STRING, "S16LE", "layout", G_TYPE_STRING, "interleaved",
                                "channels", G_TYPE_INT, 1, "rate", G_TYPE_INT, frequency, nullptr );
}

const char* GCaptureLibraryName( std::string_view subtype )
{
    return subtype == "RGB24" ? "RGB" : "YUY2";
}

bool GCaptureIsShapeless( const GstCaps* caps )
{
    int numerator = 1;
    int denominator = 1;
    if( !gst_caps_get_size( caps ) ) return false;
    gst_structure_get_fraction( gst_caps_get_structure( caps, 0 ), "pixel-aspect-ratio", &numerator, &denominator );
    return numerator <= 0 || denominator <= 0;
}

bool GCaptureReadHeader( const GstCaps* caps, bool bottomUp, GBitmapInfoHeader& header )
{
    GstVideoInfo info;
    if( !gst_video_info_from_caps( &info, caps ) ) return false;
    const GstVideoFormat format = GST_VIDEO_INFO_FORMAT( &info );
    header = { GST_VIDEO_INFO_WIDTH( &info ),
               GST_VIDEO_INFO_HEIGHT( &info ),
               0,
               lettersOf( gst_video_format_to_string( format ) ),
               0,
               0 };
    if( !bottomUp ) header.height = -header.height;
    for( const Layout& layout : LAYOUTS )
    {
        if( layout.format != format ) continue;
        header.bitCount = layout.bitCount;
        header.compression = layout.compression;
        header.redMask = layout.redMask;
        header.greenMask = layout.greenMask;
    }
    return true;
}

bool GCaptureReadFormat( const GstCaps* caps, GAudioFormat& format )
{
    GstAudioInfo info;
    if( !gst_audio_info_from_caps( &info, caps ) ) return false;
    format = { GST_AUDIO_INFO_WIDTH( &info ) / 8, GST_AUDIO_INFO_RATE( &info ), GST_AUDIO_INFO_CHANNELS( &info ) };
    return true;
}
