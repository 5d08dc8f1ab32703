#include "client/media/GVoiceTreatment.h"

#include <speex/speex_preprocess.h>

#include <algorithm>
#include <array>

namespace
{
constexpr int BLOCK = 160; // One codec frame.
// What the library is told to bring voices to, of 32768, and by how many decibels it may raise them.
constexpr float LEVEL = 8000;
constexpr int GREATEST_RAISE = 18;
constexpr int NOISE_DECIBELS = -15;
} // namespace

struct GVoiceTreatment::Work
{
    explicit Work( int rate ) : frequency( rate ), preprocess( speex_preprocess_state_init( BLOCK, rate ) )
    {
        float level = LEVEL;
        int raise = GREATEST_RAISE;
        int suppress = NOISE_DECIBELS;
        speex_preprocess_ctl( preprocess, SPEEX_PREPROCESS_SET_AGC_LEVEL, &level );
        speex_preprocess_ctl( preprocess, SPEEX_PREPROCESS_SET_AGC_MAX_GAIN, &raise );
        speex_preprocess_ctl( preprocess, SPEEX_PREPROCESS_SET_NOISE_SUPPRESS, &suppress );
    }
    ~Work( ) { speex_preprocess_state_destroy( preprocess ); }
    Work( const Work& ) = delete;
    Work& operator=( const Work& ) = delete;

    void treat( ) { speex_preprocess_run( preprocess, block.data( ) ); }

    const int frequency;
    SpeexPreprocessState* preprocess;
    std::array<int16_t, BLOCK> block{ }; // Treated samples up to `filled` wait to leave, what came takes their places.
    int filled = 0;
};

GVoiceTreatment::GVoiceTreatment( GInstance* instance ) : _instance( instance ) {}

GVoiceTreatment::~GVoiceTreatment( ) = default;

void GVoiceTreatment::process( uint64_t, int frequency, int16_t* samples, int count )
{
    if( !_instance->test( u"Voice_Treatment" ) )
    {
        _work.reset( );
        return;
    }
    if( !_work || _work->frequency != frequency ) _work = std::make_unique<Work>( frequency );
    int noise = _instance->test( u"Voice_Noise" ) || !_instance->isSet( u"Voice_Noise" );
    int level = _instance->test( u"Voice_Level" ) || !_instance->isSet( u"Voice_Level" );
    speex_preprocess_ctl( _work->preprocess, SPEEX_PREPROCESS_SET_DENOISE, &noise );
    speex_preprocess_ctl( _work->preprocess, SPEEX_PREPROCESS_SET_AGC, &level );
    Work& work = *_work;
    for( int i = 0; i < count; ++i )
    {
        // Whole buffers of whole blocks are treated in place of themselves; a block that is cut leaves one block late.
        std::swap( samples[i], work.block[static_cast<size_t>( work.filled )] );
        if( ++work.filled < BLOCK ) continue;
        work.filled = 0;
        work.treat( );
    }
}
