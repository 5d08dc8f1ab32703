// Reads the head of a message, firstLine CR LF *( line CR LF ) CR LF, by the rules of base/GLineGrammar.h: one pass that tests the
// bytes and widens them into a table. Escapes and characters beyond ASCII take a second, careful look.
#pragma once

#include "base/GPlainText.h"
#include "runtime/GHeaderTable.h"

class GHeaderScanner
{
public:
    // Bytes and table outlive the scanner; nothing is read past `length`.
    GHeaderScanner( const char* buffer, size_t length, GHeaderTable& table );
    // Fills the empty table. The bytes taken, or 0 when there is no whole head or one of another shape; the table is of no use then.
    size_t scan( );
    // True when the bytes are just what a message with these headers is written as.
    bool isCanonical( ) const { return _canonical; }

private:
    using Kind = GPlainText::Kind;
    template <Kind kind>
    bool _piece( size_t& units );
    template <Kind kind>
    bool _careful( const char* start, size_t& units );
    bool _line( );
    size_t _blanks( );
    bool _eol( );

    const char* const _begin;
    const char* const _end;
    const char* _next;
    GHeaderTable& _table;
    bool _canonical = true;
};
