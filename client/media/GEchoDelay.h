// Finds by how much a microphone's echo comes after its cause: the peak of their correlation over the last second, up to 330 ms. Works at
// a rate of its own, an eighth of what it is given. One thread at a time; allocates nothing.
#pragma once

#include <array>
#include <cstdint>

class GEchoDelay
{
public:
    // `frequency`: samples a second.
    explicit GEchoDelay( int frequency );
    // The same stretch of both, a multiple of 8 samples, at most 160.
    void take( const int16_t* microphone, const int16_t* played, int count );
    // In samples; -1 until an echo was found. It only moves when another place has been the better one for a fifth of a second.
    int delay( ) const { return _delay; }

private:
    static constexpr int LAGS = 920;
    static constexpr int MOST = 20;

    void _add( float microphone, const float* now );
    void _decide( int count );

    const int _frequency;
    std::array<float, LAGS> _correlation{ };
    std::array<float, LAGS + MOST> _played{ }; // The latest last.
    float _playedEnergy = 0;
    float _energy = 0;
    int _candidate = 0;
    int _patience = 0; // Samples for which the candidate has been the best.
    int _delay = -1;
};
