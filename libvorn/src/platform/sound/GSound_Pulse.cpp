// Lines and wave files. The speaker line is the server's default sink; the wave line is this program's own streams, whose volume is
// kept here and given to each new one. Without a server the wave line alone is remembered.
#include "platform/GSound.h"

#include "base/GUtil.h"
#include "platform/common/GWaveFile.h"
#include "platform/sound/GSoundServer_Pulse.h"

#include <algorithm>
#include <cmath>

namespace
{
constexpr const char* DEFAULT_SINK = "@DEFAULT_SINK@";
constexpr int MAX_PLAYING = 8;

struct Speaker
{
    bool known = false;
    bool muted = false;
    double volume = 1.0;
    int channels = 2;
};

void onSinkInfo( pa_context*, const pa_sink_info* info, int end, void* argument )
{
    if( end || !info ) return;
    Speaker& speaker = *static_cast<Speaker*>( argument );
    speaker.known = true;
    speaker.muted = info->mute != 0;
    speaker.volume = std::min( 1.0, static_cast<double>( pa_cvolume_avg( &info->volume ) ) / PA_VOLUME_NORM );
    speaker.channels = info->volume.channels;
}

// Under the lock. The default sink when the server names one.
Speaker getSpeaker( )
{
    Speaker speaker;
    GSoundServer& server = GSoundServer::get( );
    if( server.connect( ) )
        server.finish( pa_context_get_sink_info_by_name( server.context( ), DEFAULT_SINK, onSinkInfo, &speaker ) );
    return speaker;
}

void onSuccess( pa_context*, int success, void* argument )
{
    *static_cast<bool*>( argument ) = success != 0;
}

bool setSpeakerVolume( const Speaker& speaker, double volume )
{
    GSoundServer& server = GSoundServer::get( );
    pa_cvolume value;
    pa_cvolume_set( &value, static_cast<unsigned>( speaker.channels ),
                    static_cast<pa_volume_t>( std::lround( volume * PA_VOLUME_NORM ) ) );
    bool success = false;
    return server.finish(
               pa_context_set_sink_volume_by_name( server.context( ), DEFAULT_SINK, &value, onSuccess, &success ) ) &&
           success;
}

// One wave file on its way; it ends and frees itself on the loop's thread.
struct Playing
{
    GWaveFile file;
    size_t at = 0;
    pa_stream* stream = nullptr;
};
int playing_ = 0; // Under the lock.

void endPlaying( Playing* playing )
{
    pa_stream_set_state_callback( playing->stream, nullptr, nullptr );
    pa_stream_set_write_callback( playing->stream, nullptr, nullptr );
    GSoundServer::get( ).removeStream( playing->stream );
    pa_stream_disconnect( playing->stream );
    pa_stream_unref( playing->stream );
    playing_--;
    delete playing;
}

void onDrained( pa_stream* stream, int success, void* argument )
{
    // When the stream failed its state callback has ended it, or will.
    if( success && pa_stream_get_state( stream ) == PA_STREAM_READY ) endPlaying( static_cast<Playing*>( argument ) );
}

void onRoom( pa_stream* stream, size_t wanted, void* argument )
{
    Playing& playing = *static_cast<Playing*>( argument );
    const size_t count = std::min( wanted, playing.file.samples.size( ) - playing.at );
    if( count > 0 )
        pa_stream_write( stream, playing.file.samples.data( ) + playing.at, count, nullptr, 0, PA_SEEK_RELATIVE );
    playing.at += count;
    if( playing.at < playing.file.samples.size( ) ) return;
    pa_stream_set_write_callback( stream, nullptr, nullptr );
    if( pa_operation* drain = pa_stream_drain( stream, onDrained, &playing ) ) pa_operation_unref( drain );
}

void onPlayingState( pa_stream* stream, void* argument )
{
    if( !PA_STREAM_IS_GOOD( pa_stream_get_state( stream ) ) ) endPlaying( static_cast<Playing*>( argument ) );
}

// Under the lock, with a server that answers.
bool startPlaying( GWaveFile& file )
{
    GSoundServer& server = GSoundServer::get( );
    if( playing_ >= MAX_PLAYING ) return false;
    const pa_sample_spec spec{ file.bits == 8 ? PA_SAMPLE_U8 : PA_SAMPLE_S16LE, static_cast<uint32_t>( file.frequency ),
                               static_cast<uint8_t>( file.channels ) };
    pa_stream* stream = pa_stream_new( server.context( ), "Sound", &spec, nullptr );
    if( !stream ) return false;
    Playing* playing = new Playing{ std::move( file ), 0, stream };
    playing_++;
    server.addStream( stream );
    pa_stream_set_write_callback( stream, onRoom, playing );
    const pa_cvolume volume = server.getWaveVolume( spec.channels );
    const pa_stream_flags_t flags = server.waveMuted ? PA_STREAM_START_MUTED : PA_STREAM_NOFLAGS;
    if( pa_stream_connect_playback( stream, nullptr, nullptr, flags, &volume, nullptr ) < 0 )
    {
        endPlaying( playing );
        return false;
    }
    pa_stream_set_state_callback( stream, onPlayingState, playing );
    return true;
}
} // namespace

void GSoundPlay( const GWString& path )
{
    GCALL( function );
    GString bytes;
    GWaveFile file;
    bool good = GFileLoad( path, bytes ) && file.parse( bytes );
    if( good )
    {
        const GSoundServer::Lock lock;
        if( !GSoundServer::get( ).connect( ) ) return;
        good = startPlaying( file );
    }
    if( !good ) GLOG( u"WARNING Unable to play sound '", path, u"', ignoring." );
}

bool GSoundIsMuted( )
{
    const GSoundServer::Lock lock;
    return getSpeaker( ).muted || GSoundServer::get( ).waveMuted;
}

void GSoundSetMute( bool mute )
{
    const GSoundServer::Lock lock;
    GSoundServer& server = GSoundServer::get( );
    if( !mute ) server.waveMuted = false;
    if( !server.connect( ) ) return;
    server.finish( pa_context_set_sink_mute_by_name( server.context( ), DEFAULT_SINK, mute, nullptr, nullptr ) );
    if( !mute ) server.applyWaveLine( );
}

double GSoundGetVolume( )
{
    const GSoundServer::Lock lock;
    return getSpeaker( ).volume * GSoundServer::get( ).waveVolume;
}

void GSoundSetVolume( double volume )
{
    GSoundSetLines( volume, 1.0 );
}

void GSoundSetLines( double speaker, double wave )
{
    const GSoundServer::Lock lock;
    GSoundServer& server = GSoundServer::get( );
    server.waveVolume = std::clamp( wave, 0.0, 1.0 );
    const Speaker line = getSpeaker( );
    if( !line.known ) return;
    const bool good = setSpeakerVolume( line, std::clamp( speaker, 0.0, 1.0 ) );
    if( !server.applyWaveLine( ) || !good ) GLOG( u"WARNING Couldn't set volume, ignoring." );
}
