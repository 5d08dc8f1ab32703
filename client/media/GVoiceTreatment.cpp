#include "client/media/GVoiceTreatment.h"

#include "client/media/GEchoDelay.h"
#include "client/media/GEchoReader.h"
#include "client/media/GVoiceLevel.h"

#include <speex/speex_echo.h>
#include <speex/speex_preprocess.h>

#include <algorithm>
#include <array>

namespace
{
constexpr int BLOCK = 160; // One codec frame.
// How long an echo lasts from its begin on, and how much earlier than it was found it may begin, in milliseconds.
constexpr int ECHO_LENGTH = 96;
constexpr int ECHO_BEGIN = 12;
constexpr int MILLISECONDS = 1000;
constexpr int NOISE_DECIBELS = -18;

// How the remains of an echo are lowered, while nobody and while somebody speaks.
constexpr int REMAINS_DECIBELS = -45;
constexpr int REMAINS_ACTIVE_DECIBELS = -15;
} // namespace

// What is kept of the treatment of one rate.
struct GVoiceTreatment::Work
{
    explicit Work( int rate );
    ~Work( );
    Work( const Work& ) = delete;
    Work& operator=( const Work& ) = delete;

    void process( int16_t* samples, int count );
    void treat( );
    bool cancel( );
    void push( const int16_t* samples, int count );
    int pull( int16_t* samples, int most );

    const int frequency;
    bool echo = false;
    bool noise = false;
    bool level = false;
    GEchoReader reader;
    GEchoDelay finder;
    int delay = 0; // By which the reference is late, in samples.
    GVoiceLevel leveller;
    SpeexEchoState* canceller;
    SpeexPreprocessState* preprocess;
    std::array<int16_t, BLOCK> block{ };
    int filled = 0;
    bool isLate = false;
    // What is treated and has not left.
    std::array<int16_t, 4 * static_cast<size_t>( BLOCK )> ready{ };
    int first = 0;
    int waiting = 0;
};

GVoiceTreatment::Work::Work( int rate )
    : frequency( rate ), reader( rate ), finder( rate ), leveller( rate, BLOCK ),
      canceller( speex_echo_state_init( BLOCK, rate * ECHO_LENGTH / MILLISECONDS ) ),
      preprocess( speex_preprocess_state_init( BLOCK, rate ) )
{
    int remains = REMAINS_DECIBELS;
    int active = REMAINS_ACTIVE_DECIBELS;
    speex_echo_ctl( canceller, SPEEX_ECHO_SET_SAMPLING_RATE, &rate );
    speex_preprocess_ctl( preprocess, SPEEX_PREPROCESS_SET_ECHO_SUPPRESS, &remains );
    speex_preprocess_ctl( preprocess, SPEEX_PREPROCESS_SET_ECHO_SUPPRESS_ACTIVE, &active );
}

GVoiceTreatment::Work::~Work( )
{
    speex_preprocess_state_destroy( preprocess );
    speex_echo_state_destroy( canceller );
}

void GVoiceTreatment::Work::push( const int16_t* samples, int count )
{
    for( int i = 0; i < count; ++i, ++waiting )
        ready[static_cast<size_t>( first + waiting ) % ready.size( )] = samples ? samples[i] : int16_t( 0 );
}

int GVoiceTreatment::Work::pull( int16_t* samples, int most )
{
    const int count = std::min( waiting, most );
    for( int i = 0; i < count; ++i ) samples[i] = ready[static_cast<size_t>( first + i ) % ready.size( )];
    first = static_cast<int>( static_cast<size_t>( first + count ) % ready.size( ) );
    waiting -= count;
    return count;
}

// Buffers of whole blocks wait for nothing; from the first other one on everything waits for the time of a block.
void GVoiceTreatment::Work::process( int16_t* samples, int count )
{
    if( count % BLOCK && !isLate ) push( nullptr, BLOCK );
    isLate = isLate || count % BLOCK;
    int gone = 0;
    for( int taken = 0; taken < count; )
    {
        const int piece = std::min( count - taken, BLOCK - filled );
        std::copy_n( samples + taken, piece, block.begin( ) + filled );
        taken += piece;
        filled += piece;
        if( filled == BLOCK )
        {
            treat( );
            push( block.data( ), BLOCK );
            filled = 0;
        }
        gone += pull( samples + gone, taken - gone );
    }
}

// True while something is played that may come back. Where the echo is found to begin elsewhere, what was learnt of it is of no use.
bool GVoiceTreatment::Work::cancel( )
{
    std::array<int16_t, BLOCK> now;
    std::array<int16_t, BLOCK> heard;
    const std::array<int16_t, BLOCK> taken = block;
    const bool sounds = reader.read( now.data( ), heard.data( ), BLOCK, delay );
    finder.take( taken.data( ), now.data( ), BLOCK );
    const int begin = ECHO_BEGIN * frequency / MILLISECONDS;
    const int found = std::max( 0, finder.delay( ) - begin );
    if( std::abs( found - delay ) > begin / 2 )
    {
        delay = found;
        speex_echo_state_reset( canceller );
    }
    speex_echo_cancellation( canceller, taken.data( ), heard.data( ), block.data( ) );
    return sounds;
}

void GVoiceTreatment::Work::treat( )
{
    const bool sounds = echo && cancel( );
    int denoise = echo || noise;
    int decibels = noise ? NOISE_DECIBELS : 0;
    speex_preprocess_ctl( preprocess, SPEEX_PREPROCESS_SET_DENOISE, &denoise );
    speex_preprocess_ctl( preprocess, SPEEX_PREPROCESS_SET_NOISE_SUPPRESS, &decibels );
    speex_preprocess_ctl( preprocess, SPEEX_PREPROCESS_SET_ECHO_STATE, echo ? canceller : nullptr );
    speex_preprocess_run( preprocess, block.data( ) );
    if( level ) leveller.process( block.data( ), sounds );
}

GVoiceTreatment::GVoiceTreatment( GInstance* instance ) : _instance( instance ) {}

GVoiceTreatment::~GVoiceTreatment( ) = default;

bool GVoiceTreatment::_isOn( GWStringView part ) const
{
    return !_instance->isSet( part ) || _instance->test( part );
}

void GVoiceTreatment::process( uint64_t timestamp, int frequency, int16_t* samples, int count )
{
    if( !_instance->test( u"Voice_Treatment" ) || frequency <= 0 )
    {
        _work.reset( );
        return;
    }
    if( !_work || _work->frequency != frequency ) _work = std::make_unique<Work>( frequency );
    _work->echo = _isOn( u"Voice_Echo" );
    _work->noise = _isOn( u"Voice_Noise" );
    _work->level = _isOn( u"Voice_Level" );
    _work->reader.take( timestamp, count );
    _work->process( samples, count );
}
