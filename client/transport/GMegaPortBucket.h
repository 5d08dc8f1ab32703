// One received datagram on its way from the reader to a service, and the list in which it waits. A list takes nothing from the heap:
// its buckets are linked by themselves. No lock; the owner serialises use.
#pragma once

#include "platform/GNet.h"

#include <utility>

// It belongs to whoever took it from a list and goes back by GMegaPort::returnEmptyBucket; its texts keep their room through reuse.
struct GMegaPortBucket : GNetDatagram
{
    GWString localHost;              // Where it was received: the UDP port's host, the global host for relayed data.
    GMegaPortBucket* next = nullptr; // In a list.
};

class GMegaPortBucketList
{
public:
    bool empty( ) const { return !_first; }
    size_t size( ) const { return _size; }
    size_t getBytes( ) const { return _bytes; } // Of all datagrams.

    void push( GMegaPortBucket* bucket )
    {
        bucket->next = nullptr;
        ( _last ? _last->next : _first ) = bucket;
        _last = bucket;
        ++_size;
        _bytes += bucket->buffer.size( );
    }
    // The oldest one; null when there is none.
    GMegaPortBucket* pop( )
    {
        GMegaPortBucket* bucket = _first;
        if( !bucket ) return nullptr;
        _first = std::exchange( bucket->next, nullptr );
        if( !_first ) _last = nullptr;
        --_size;
        _bytes -= bucket->buffer.size( );
        return bucket;
    }

private:
    GMegaPortBucket* _first = nullptr;
    GMegaPortBucket* _last = nullptr;
    size_t _size = 0;
    size_t _bytes = 0;
};
