// The call stacks behind GCallEnter: one a thread, made at the thread's first traced call and freed at its end.
// A frame above `depth` belongs to a call that has returned; it stays until the next call overwrites it.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

struct GCallFrame
{
    const char* file;
    const char* function;
    int line;
    const char* comment;
    uint64_t enterTime;
};

struct GCallStack
{
    int depth = 0;
    std::vector<GCallFrame> frames;
    std::mutex lock;
    bool trace = false;
};

// Writes the lines of a thread's dump one by one, without the heap and without waiting for long: the crash handler uses it.
// `write` gets text that ends with a newline. An unknown thread writes nothing.
void GCallDumpTo( uint64_t threadId, void ( *write )( const char* line ) );
