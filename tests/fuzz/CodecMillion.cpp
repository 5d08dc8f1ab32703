// Mutated packets and codebooks of both codecs by the million, under the sanitizers of the fuzz preset. tests/fuzz/million runs it.
// Arguments: how many, and the seed.
#include "Fuzz.h"
#include "support/CodecMutations.h"

#include <cstdio>

namespace
{
bool tell( const char* what, const CodecMutations::Counts& counts )
{
    std::printf( "%-22s %9lld tried, %9lld decoded%s\n", what, static_cast<long long>( counts.tried ),
                 static_cast<long long>( counts.taken ), counts.broken ? ", BROKEN" : "" );
    return counts.broken;
}
} // namespace

int main( int argc, char** argv )
{
    const int64_t count = argc > 1 ? std::atoll( argv[1] ) : 1000000;
    const unsigned seed = argc > 2 ? static_cast<unsigned>( std::atoll( argv[2] ) ) : 1;
    CodecMutations mutations( seed );
    const CodecMutations::Results& results = mutations.run( count );
    bool broken = tell( "frames of pictures", results.pictures );
    broken = tell( "codebooks of pictures", results.codebooks ) || broken;
    broken = tell( "packets of sound", results.sounds ) || broken;
    broken = tell( "codebooks of sound", results.soundCodebooks ) || broken;
    return broken ? 1 : 0;
}
