// Pictures that wait for their time, in order. Their texts go in and out by exchange and keep their room, so that nothing is allocated
// once they have grown. One thread.
#pragma once

#include "base/GTypes.h"
#include "image/GImageFormat.h"

#include <array>

class GPictureQueue
{
public:
    static constexpr int SIZE = 32;
    struct Picture
    {
        uint64_t time = 0; // When it is to be shown.
        GImageFormat format;
        GString pixels;
    };

    bool isFull( ) const { return _count == SIZE; }
    bool isEmpty( ) const { return _count == 0; }
    // Takes the pixels and leaves others, for their room. Not into a full queue. Never before the picture that it follows.
    void put( uint64_t time, const GImageFormat& format, GString& pixels );
    // The oldest one; not from an empty queue.
    const Picture& getFront( ) const;
    // The newest one; not from an empty queue.
    const Picture& getBack( ) const;
    void pop( );

private:
    std::array<Picture, SIZE> _pictures;
    int _first = 0;
    int _count = 0;
};
