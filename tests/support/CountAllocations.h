// Counts what a test program takes from the heap. A program that uses it gets the counting operator new with it; under the thread
// sanitizer the count stays 0.
#pragma once

// Allocations of the whole program so far, by operator new.
long allocationCount( );

// How often `work` went to the heap.
template <typename Work>
long countAllocations( Work work )
{
    const long before = allocationCount( );
    work( );
    return allocationCount( ) - before;
}
