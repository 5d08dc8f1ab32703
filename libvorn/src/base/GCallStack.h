// The call stacks behind GCallEnter: one a thread, made at the thread's first traced call and freed at its end.
// A frame above `depth` belongs to a call that has returned; it stays until the next call overwrites it.
//
// The owning thread writes without taking the lock, since it does so at every call: all that another thread may read is atomic, and
// the arrays of frames live as long as the stack. The lock orders dumps, switches of the trace and growth.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

struct GCallFrame
{
    std::atomic<const char*> file = nullptr;
    std::atomic<const char*> function = nullptr;
    std::atomic<int> line = 0;
    std::atomic<const char*> comment = nullptr;
    std::atomic<uint64_t> enterTime = 0; // Microseconds since 1601; of use while the thread is traced.
};

struct GCallStack
{
    std::atomic<int> depth = 0;
    std::atomic<int> used = 0;                 // Frames that a dump shows: those of returned calls lie from `depth` on.
    std::atomic<GCallFrame*> frames = nullptr; // The last of `arrays`, with room for `room` frames.
    int room = 0;                              // Of the owning thread.
    std::vector<std::unique_ptr<GCallFrame[]>> arrays;
    std::mutex lock;
    std::atomic<bool> trace = false;
};

// Writes the lines of a thread's dump one by one, without the heap and without waiting for long: the crash handler uses it.
// `write` gets text that ends with a newline. An unknown thread writes nothing.
void GCallDumpTo( uint64_t threadId, void ( *write )( const char* line ) );
