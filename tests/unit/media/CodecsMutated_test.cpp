// The short form of tests/fuzz/million: whatever comes, the decoders refuse it or decode it.
#include "MediaFixture.h"
#include "support/CodecMutations.h"

class CodecsMutated : public MediaFixture
{
};

TEST_F( CodecsMutated, TwentyThousandPacketsAreDroppedOrDecoded )
{
    TestLog::allow( "WARNING" );
    CodecMutations mutations( 7 );
    const CodecMutations::Results& results = mutations.run( 20000 );
    for( const CodecMutations::Counts& counts :
         { results.pictures, results.codebooks, results.sounds, results.soundCodebooks } )
    {
        EXPECT_GT( counts.tried, 100 );
        EXPECT_GT( counts.taken, 0 );
        EXPECT_FALSE( counts.broken );
    }
    EXPECT_LT( results.pictures.taken, results.pictures.tried );
    EXPECT_LT( results.sounds.taken, results.sounds.tried );
    EXPECT_LT( results.codebooks.taken, results.codebooks.tried );
}
