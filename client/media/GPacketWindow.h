// Keeps the packets of a numbered stream that came before their turn, and knows which of the latest came already. Pure; the slots keep
// their room, so that nothing is allocated once they have grown.
#pragma once

#include "base/GTypes.h"

#include <array>

class GPacketWindow
{
public:
    static constexpr int SIZE = 64;
    struct Packet
    {
        bool held = false;
        uint32_t stamp = 0;
        GString frame;
    };

    // Begins with this number; nothing is held.
    void restart( uint16_t next );
    uint16_t getNext( ) const { return _next; }
    // How far ahead of the next one; negative for one whose turn is over. The counter wraps.
    int getAhead( uint16_t sequence ) const
    {
        return static_cast<int16_t>( static_cast<uint16_t>( sequence - _next ) );
    }
    // True when it is held, or had its turn and came then or after it.
    bool isKnown( uint16_t sequence ) const;
    // Keeps one that is unknown and 0 to SIZE - 1 ahead. One whose turn is over is only remembered, and false told.
    bool put( uint16_t sequence, uint32_t stamp, const char* frame, int length );
    // The next one, or null when it has not come.
    const Packet* getFront( ) const;
    // The turn of the next one is over.
    void advance( );
    bool isEmpty( ) const { return _count == 0; }

private:
    std::array<Packet, SIZE> _packets;
    int _count = 0;
    uint16_t _next = 0;
    uint64_t _past = 0; // Bit i: the one numbered next - 1 - i came.
};
