#include "runtime/GReaderGate.h"

#include <chrono>
#include <thread>

namespace
{
// A reader is gone within nanoseconds unless the system has taken its processor away: then it gets ours.
constexpr int SPINS = 200;
constexpr int YIELDS = 200;
constexpr std::chrono::microseconds PAUSE( 50 );

void waitALittle( int round )
{
    if( round >= SPINS + YIELDS )
        std::this_thread::sleep_for( PAUSE );
    else if( round >= SPINS )
        std::this_thread::yield( );
}
} // namespace

void GReaderGate::shut( )
{
    _shut.store( true, std::memory_order_seq_cst );
    for( const Slot& slot : _slots )
        for( int round = 0; slot.readers.load( std::memory_order_seq_cst ) != 0; ++round ) waitALittle( round );
}
