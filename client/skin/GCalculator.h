// The calculator grammar: 32-bit arithmetic with + - * / and parentheses on the front of a text. White space is skipped.
// Plain values, one thread.
#pragma once

#include "base/GTypes.h"

class GCalculator
{
public:
    // What follows this many characters is not looked at, which also bounds how deep the parser goes.
    static constexpr size_t MAX_LENGTH = 512;

    // The newest number on the stack after parsing as far as the text matches; false when there is none. Division truncates toward
    // zero, overflow wraps, literals saturate, and a zero divisor raises the divide fault.
    bool calc( GWStringView text, int32_t& value ) const;
    // A text of at most nine digits and nothing else, as most settings are: needs no grammar. False for any other.
    static bool readPlain( GWStringView text, int32_t& value );
};
