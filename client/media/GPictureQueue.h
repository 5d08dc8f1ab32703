// Pictures that wait for their time, in order; bounded in number and bytes. Their texts go in and out by exchange and keep their room, so
// that nothing is allocated once they have grown, and only as many have room as ever waited at once. One thread.
#pragma once

#include "base/GTypes.h"
#include "image/GImageFormat.h"

#include <array>

class GPictureQueue
{
public:
    static constexpr int SIZE = 64;
    static constexpr size_t MAXIMUM_BYTES = 16 << 20;
    struct Picture
    {
        uint64_t time = 0; // When it is to be shown.
        GImageFormat format;
        GString pixels;
    };

    GPictureQueue( );

    bool isFull( ) const { return _count == SIZE || _bytes >= MAXIMUM_BYTES; }
    bool isEmpty( ) const { return _count == 0; }
    // Takes the pixels and leaves others, for their room. Not into a full queue. Never before the picture that it follows.
    void put( uint64_t time, const GImageFormat& format, GString& pixels );
    // The oldest one; not from an empty queue.
    const Picture& getFront( ) const;
    // The newest one; not from an empty queue.
    const Picture& getBack( ) const;
    void pop( );
    // Pops the oldest one and leaves the given text for its room.
    void take( GString& pixels );

private:
    Picture& _at( int place ) { return _pictures[_order[static_cast<size_t>( ( _first + place ) % SIZE )]]; }

    std::array<Picture, SIZE> _pictures;
    std::array<size_t, SIZE> _order; // A ring: which picture stands where, the next to be used after the last.
    int _first = 0;
    int _count = 0;
    size_t _bytes = 0;
};
