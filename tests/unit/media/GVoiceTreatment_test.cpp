#include "client/media/GVoiceTreatment.h"

#include <gtest/gtest.h>

#include <vector>

TEST( GVoiceTreatment, UnsetItLeavesEverySampleUntouched )
{
    GInstance instance( u"settings_treatment_test.ini" );
    GVoiceTreatment treatment( &instance );
    std::vector<int16_t> samples( 1000 );
    for( size_t i = 0; i < samples.size( ); ++i ) samples[i] = static_cast<int16_t>( i * 7919 );
    const std::vector<int16_t> before = samples;
    treatment.process( 5, 22000, samples.data( ), static_cast<int>( samples.size( ) ) );
    EXPECT_EQ( samples, before );
}
