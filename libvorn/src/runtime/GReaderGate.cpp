#include "runtime/GReaderGate.h"

#include <thread>

namespace
{
// A reader is gone within nanoseconds unless the system has taken its processor away.
constexpr int SPINS = 200;
} // namespace

void GReaderGate::shut( )
{
    _shut.store( true, std::memory_order_seq_cst );
    for( const Slot& slot : _slots )
        for( int spins = 0; slot.readers.load( std::memory_order_seq_cst ) != 0; ++spins )
            if( spins >= SPINS ) std::this_thread::yield( );
}
