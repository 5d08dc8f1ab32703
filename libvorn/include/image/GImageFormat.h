// What an image buffer holds: a type number and its size in pixels. The pixels lie beside it as a plain byte string, rows top to
// bottom without padding.
#pragma once

#include <cstdint>

// Numbers below 14 are encoded file formats (2 JPEG, 13 PNG), from 14 on raw layouts.
enum GImageType : int32_t
{
    GIT_JPEG = 2,
    GIT_PNG = 13,
    GIT_RGB16 = 14,
    GIT_RGB24 = 15,
    GIT_RGBA32 = 16,
    GIT_RGB565 = 17,
    GIT_RGB555 = 18,
    GIT_BGR24 = 19,
    GIT_BGRA32 = 20,
    GIT_YUY2 = 21,
    GIT_IYUY = 22,
    GIT_GRAY8 = 23,
    GIT_GRAY4 = 24
};

struct GImageFormat
{
    int32_t type = 0;
    int32_t width = 0;
    int32_t height = 0;
    friend bool operator==( const GImageFormat&, const GImageFormat& ) = default;
};
