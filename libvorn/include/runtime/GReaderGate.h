// Lets the readers of an object pass beside its lock. Each announces itself in one of several slots, so that readers on different
// threads share no cache line and never wait for each other; the holder of the lock shuts the gate before it changes anything.
// Readers stay inside for a few lines and take no other lock there.
#pragma once

#include <atomic>
#include <cstddef>

class GReaderGate
{
public:
    GReaderGate( ) = default;
    GReaderGate( const GReaderGate& ) = delete;
    GReaderGate& operator=( const GReaderGate& ) = delete;

    static constexpr size_t SLOTS = 16;
    static constexpr size_t CACHE_LINE = 64;
    struct alignas( CACHE_LINE ) Slot
    {
        std::atomic<int> readers = 0;
    };
    // The slot that the caller is announced in, until it leaves. Null when the gate is shut: then it takes the object's lock instead.
    Slot* enter( )
    {
        static std::atomic<size_t> threads = 0;
        static thread_local const size_t mine = threads.fetch_add( 1, std::memory_order_relaxed ) % SLOTS;
        Slot& slot = _slots[mine];
        slot.readers.fetch_add( 1, std::memory_order_seq_cst );
        if( !_shut.load( std::memory_order_seq_cst ) ) return &slot;
        leave( slot );
        return nullptr;
    }
    static void leave( Slot& slot ) { slot.readers.fetch_sub( 1, std::memory_order_release ); }

    // By the holder of the object's lock alone. Keeps new readers out and waits for those who are inside.
    void shut( );
    void open( ) { _shut.store( false, std::memory_order_seq_cst ); }

private:
    Slot _slots[SLOTS];
    alignas( CACHE_LINE ) std::atomic<bool> _shut = false;
};
