// The room of a frame buffer: a file without a name that the X server writes into, or plain memory when the server can't share.
#pragma once

#include "platform/screen/GScreenConnection.h"

#include <cstddef>
#include <xcb/shm.h>

class GScreenMemory
{
public:
    GScreenMemory( ) = default;
    ~GScreenMemory( ) { release( ); }
    GScreenMemory( const GScreenMemory& ) = delete;
    GScreenMemory& operator=( const GScreenMemory& ) = delete;

    // Takes `size` bytes, all 0, shared with the server of this open connection when it can be. Null when there is no memory.
    char* allocate( GScreenConnection& connection, size_t size );
    void release( );

    char* get( ) const { return _bytes; }
    // What the server knows the memory by; 0 when it is not shared.
    xcb_shm_seg_t getSegment( ) const { return _segment; }

private:
    void _share( GScreenConnection& connection, int file );

    GScreenConnection* _connection = nullptr;
    unsigned _generation = 0;
    char* _bytes = nullptr;
    size_t _size = 0;
    xcb_shm_seg_t _segment = 0;
};
