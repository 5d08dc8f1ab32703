#include "runtime/GHeaderScanner.h"

#include "base/GUtil.h"

#include <algorithm>

namespace
{
// How much room a step asks for: a short head before much content does not make a large table.
constexpr size_t STEP = 4096;

template <GPlainText::Kind kind>
bool isStop( char unit )
{
    return unit == '\r' || unit == '\n' || ( kind == GPlainText::Kind::Name && unit == ':' );
}
} // namespace

GHeaderScanner::GHeaderScanner( const char* buffer, size_t length, GHeaderTable& table )
    : _begin( buffer ), _end( buffer + length ), _next( buffer ), _table( table )
{
}

bool GHeaderScanner::_eol( )
{
    if( _end - _next < 2 || _next[0] != '\r' || _next[1] != '\n' ) return false;
    _next += 2;
    return true;
}
size_t GHeaderScanner::_blanks( )
{
    const char* const start = _next;
    while( _next < _end && ( *_next == ' ' || *_next == '\t' ) ) ++_next;
    return static_cast<size_t>( _next - start );
}

// Widens up to the stop that ends a name or value. False when the bytes end first.
template <GPlainText::Kind kind>
bool GHeaderScanner::_piece( size_t& units )
{
    const char* const start = _next;
    units = 0;
    while( _next < _end )
    {
        const size_t room = std::min( static_cast<size_t>( _end - _next ), STEP );
        const size_t plain = GPlainText::widen<kind>( _next, room, _table.room( room ) );
        _table.take( plain );
        _next += plain;
        units += plain;
        if( plain < room ) return isStop<kind>( *_next ) || _careful<kind>( start, units );
    }
    return false;
}
// The same from the start of the piece, with all that it may hold.
template <GPlainText::Kind kind>
bool GHeaderScanner::_careful( const char* start, size_t& units )
{
    static thread_local GString bytes; // Keeps its room.
    _canonical = false;
    while( _next < _end && !isStop<kind>( *_next ) ) _next += *_next == '\\' ? 2 : 1;
    if( _next >= _end ) return false;
    _table.giveBack( units );
    GUnescape( std::string_view( start, static_cast<size_t>( _next - start ) ), bytes );
    units = GUTF8ToWide( bytes, _table.room( bytes.size( ) ) );
    _table.take( units );
    return true;
}

bool GHeaderScanner::_line( )
{
    size_t nameUnits = 0;
    size_t valueUnits = 0;
    if( _blanks( ) ) _canonical = false;
    if( !_piece<Kind::Name>( nameUnits ) || !nameUnits || *_next != ':' ) return false;
    const char* const colon = _next++;
    if( _blanks( ) != 1 || colon[1] != ' ' ) _canonical = false;
    if( !_piece<Kind::Value>( valueUnits ) || !_eol( ) ) return false;
    _table.append( nameUnits, valueUnits );
    return true;
}

size_t GHeaderScanner::scan( )
{
    size_t units = 0;
    if( !_piece<Kind::Value>( units ) || !_eol( ) ) return 0;
    _table.append( 0, units );
    while( !_eol( ) )
        if( !_line( ) ) return 0;
    if( !_table.sort( ) ) _canonical = false;
    return static_cast<size_t>( _next - _begin );
}
