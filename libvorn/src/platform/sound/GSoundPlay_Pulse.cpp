// Wave files on their way to the speaker. Each is a stream of its own, which ends and frees itself on the loop's thread when it was
// heard, or when the server takes it away.
#include "platform/GSound.h"

#include "base/GUtil.h"
#include "platform/common/GWaveFile.h"
#include "platform/sound/GSoundServer_Pulse.h"

#include <algorithm>
#include <filesystem>

namespace
{
constexpr int MAX_PLAYING = 8;
constexpr std::uintmax_t GREATEST_FILE = 64 << 20;

struct Playing
{
    GWaveFile file;
    size_t at = 0;
    pa_stream* stream = nullptr;
};
int playing_ = 0; // Under the lock.

// What is no plain file may have no end.
bool load( const GWString& path, GWaveFile& file )
{
    const std::filesystem::path name( GWideToUTF8( path ) );
    std::error_code error;
    GString bytes;
    return std::filesystem::is_regular_file( name, error ) &&
           std::filesystem::file_size( name, error ) <= GREATEST_FILE && !error && GFileLoad( path, bytes ) &&
           file.parse( bytes );
}

// Under the lock, as all below.
void endPlaying( Playing* playing )
{
    GSoundServer::get( ).removeStream( playing->stream );
    GSoundServer::release( playing->stream );
    playing_--;
    delete playing;
}

// A stream that has failed was ended by its state, which cancels what was asked of it.
void onDrained( pa_stream* stream, int, void* argument )
{
    if( PA_STREAM_IS_GOOD( pa_stream_get_state( stream ) ) ) endPlaying( static_cast<Playing*>( argument ) );
}

void onRoom( pa_stream* stream, size_t wanted, void* argument )
{
    Playing* playing = static_cast<Playing*>( argument );
    const GString& samples = playing->file.samples;
    const size_t count = std::min( wanted, samples.size( ) - playing->at );
    if( count > 0 && pa_stream_write( stream, samples.data( ) + playing->at, count, nullptr, 0, PA_SEEK_RELATIVE ) < 0 )
        return;
    playing->at += count;
    if( playing->at < samples.size( ) ) return;
    pa_stream_set_write_callback( stream, nullptr, nullptr );
    if( pa_operation* drain = pa_stream_drain( stream, onDrained, playing ) )
        pa_operation_unref( drain );
    else
        endPlaying( playing );
}

void onPlayingState( pa_stream* stream, void* argument )
{
    if( !PA_STREAM_IS_GOOD( pa_stream_get_state( stream ) ) ) endPlaying( static_cast<Playing*>( argument ) );
}

bool startPlaying( GWaveFile& file )
{
    GSoundServer& server = GSoundServer::get( );
    if( !server.connect( ) || playing_ >= MAX_PLAYING ) return false;
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
    GWaveFile file;
    bool good = load( path, file );
    if( good )
    {
        const GSoundServer::Lock lock;
        good = startPlaying( file );
    }
    if( !good ) GLOG( u"WARNING Unable to play sound '", path, u"', ignoring." );
}
