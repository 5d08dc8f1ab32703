// The two lines of the mixer. The speaker line is the server's default sink; the wave line is this program's own streams. What
// somebody else set on a stream that plays now counts, and is remembered.
#include "platform/GSound.h"

#include "base/GPortable.h"
#include "platform/sound/GSoundServer_Pulse.h"

#include <algorithm>
#include <cmath>

namespace
{
constexpr const char* DEFAULT_SINK = "@DEFAULT_SINK@";

enum GSoundLine
{
    LINE_SPEAKERS,
    LINE_WAVEOUT
};
// All controls of a line.
struct GSoundControls
{
    bool known = false; // The line answered.
    bool muted = false;
    double volume = 1.0; // 0 to 1.
    int channels = 2;
};

double volumeOf( const pa_cvolume& volume )
{
    return std::min( 1.0, static_cast<double>( pa_cvolume_avg( &volume ) ) / PA_VOLUME_NORM );
}

void onSinkInfo( pa_context*, const pa_sink_info* info, int end, void* argument )
{
    if( end || !info ) return;
    *static_cast<GSoundControls*>( argument ) = { true, info->mute != 0, volumeOf( info->volume ),
                                                  info->volume.channels };
}

// The newest of this program's streams comes last.
void onStreamInfo( pa_context* context, const pa_sink_input_info* info, int end, void* argument )
{
    if( end || !info || info->client != pa_context_get_index( context ) || !info->has_volume ) return;
    *static_cast<GSoundControls*>( argument ) = { true, info->mute != 0, volumeOf( info->volume ),
                                                  info->volume.channels };
}

// These run under the lock.

GSoundControls getWaveControls( )
{
    GSoundServer& server = GSoundServer::get( );
    GSoundControls controls;
    if( server.hasStreams( ) && server.connect( ) )
        server.finish( pa_context_get_sink_input_info_list( server.context( ), onStreamInfo, &controls ) );
    if( !controls.known ) return { true, server.waveMuted, server.waveVolume, 1 };
    server.waveMuted = controls.muted;
    server.waveVolume = controls.volume;
    return controls;
}

GSoundControls _GSoundGetLineControls( GSoundLine line )
{
    if( line == LINE_WAVEOUT ) return getWaveControls( );
    GSoundServer& server = GSoundServer::get( );
    GSoundControls controls;
    if( server.connect( ) )
        server.finish( pa_context_get_sink_info_by_name( server.context( ), DEFAULT_SINK, onSinkInfo, &controls ) );
    return controls;
}

void onSuccess( pa_context*, int success, void* argument )
{
    *static_cast<bool*>( argument ) = success != 0;
}

void _GSoundSetMute( GSoundLine line, bool mute )
{
    GSoundServer& server = GSoundServer::get( );
    if( line == LINE_WAVEOUT ) server.waveMuted = mute;
    if( !server.connect( ) ) return;
    if( line == LINE_WAVEOUT )
        server.applyWaveLine( );
    else
        server.finish( pa_context_set_sink_mute_by_name( server.context( ), DEFAULT_SINK, mute, nullptr, nullptr ) );
}

bool setSpeakerVolume( double value )
{
    const GSoundControls controls = _GSoundGetLineControls( LINE_SPEAKERS );
    if( !controls.known ) return false;
    GSoundServer& server = GSoundServer::get( );
    pa_cvolume volume;
    pa_cvolume_set( &volume, static_cast<unsigned>( controls.channels ), GSoundServer::getVolume( value ) );
    bool success = false;
    return server.finish(
               pa_context_set_sink_volume_by_name( server.context( ), DEFAULT_SINK, &volume, onSuccess, &success ) ) &&
           success;
}

bool setWaveVolume( double value )
{
    GSoundServer& server = GSoundServer::get( );
    server.waveVolume = value;
    return !server.hasStreams( ) || !server.connect( ) || server.applyWaveLine( );
}

void _GSoundSetVolume( GSoundLine line, double value )
{
    value = std::isnan( value ) ? 0.0 : std::clamp( value, 0.0, 1.0 );
    if( line == LINE_WAVEOUT ? setWaveVolume( value ) : setSpeakerVolume( value ) ) return;
    GLOG( u"WARNING Couldn't set volume, ignoring." );
}
} // namespace

bool GSoundIsMuted( )
{
    const GSoundServer::Lock lock;
    return _GSoundGetLineControls( LINE_SPEAKERS ).muted || _GSoundGetLineControls( LINE_WAVEOUT ).muted;
}

void GSoundSetMute( bool mute )
{
    const GSoundServer::Lock lock;
    _GSoundSetMute( LINE_SPEAKERS, mute );
    if( !mute ) _GSoundSetMute( LINE_WAVEOUT, false );
}

double GSoundGetVolume( )
{
    const GSoundServer::Lock lock;
    return _GSoundGetLineControls( LINE_SPEAKERS ).volume * _GSoundGetLineControls( LINE_WAVEOUT ).volume;
}

void GSoundSetVolume( double volume )
{
    GSoundSetLines( volume, 1.0 );
}

void GSoundSetLines( double speaker, double wave )
{
    const GSoundServer::Lock lock;
    _GSoundSetVolume( LINE_SPEAKERS, speaker );
    _GSoundSetVolume( LINE_WAVEOUT, wave );
}
