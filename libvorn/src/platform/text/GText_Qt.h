// What the sources of the text family share.
#pragma once

#include "platform/GText.h"

#include <QFont>
#include <QFontMetrics>
#include <QImage>

struct GTextRecord
{
    explicit GTextRecord( const QFont& font_ ) : font( font_ ), metrics( font_ ) {}
    QFont font;
    QFontMetrics metrics;
    QImage page; // Only grows.
};

// Black on white becomes coverage: what is missing of white.
void GTextCoverage( const QImage& page, int width, int height, uint8_t* coverage, int stride );
