// Reads wave files: uncompressed samples of 8 or 16 bits, one or two channels. Pure, any thread.
#pragma once

#include "base/GTypes.h"

struct GWaveFile
{
    int channels = 0;
    int frequency = 0;
    int bits = 0;
    GString samples;

    // False for anything that is not such a file; lengths in the file are never trusted.
    bool parse( const GString& file );
};
