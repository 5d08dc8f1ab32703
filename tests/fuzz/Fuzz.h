// What the fuzz targets share: a failed assertion or an escaped exception is a find, log lines go nowhere, and input is cut into
// numbers and text. A target feeds its parser whatever it is given and checks only what must hold for every input.
#pragma once

#include "base/GPortable.h"
#include "base/GUtil.h"
#include "runtime/GHTTPHeaders.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>

namespace Fuzz
{
// Without the crash hook a failed assertion would return to its caller.
[[maybe_unused]] inline const bool ready = []
{
    GPortableGetHooks( ).crash = [] { std::abort( ); };
    return true;
}( );

inline void require( bool holds )
{
    if( !holds ) std::abort( );
}

// The fault of an expression that divides by zero is meant.
inline void allowDivision( )
{
    static const auto previous = std::signal( SIGFPE, SIG_IGN );
    (void)previous;
}

// Hands the bytes of one input out, piece by piece; zeros when they are spent.
class Input
{
public:
    Input( const uint8_t* data, size_t size ) : _rest( reinterpret_cast<const char*>( data ), size ) {}
    bool empty( ) const { return _rest.empty( ); }
    uint8_t byte( )
    {
        if( _rest.empty( ) ) return 0;
        const auto value = static_cast<uint8_t>( _rest.front( ) );
        _rest.remove_prefix( 1 );
        return value;
    }
    int number( int most ) { return ( byte( ) << 8 | byte( ) ) % ( most + 1 ); }
    // Up to the next line feed.
    GString line( )
    {
        const GString out( _rest.substr( 0, _rest.find( '\n' ) ) );
        _rest.remove_prefix( std::min( out.size( ) + 1, _rest.size( ) ) );
        return out;
    }
    GWString wideLine( ) { return GUTF8ToWide( line( ) ); }
    // A first line and headers up to an empty line.
    GHTTPHeaders message( )
    {
        GHTTPHeaders out;
        out.set( u"", wideLine( ) );
        for( GWString text = wideLine( ); !text.empty( ); text = wideLine( ) )
        {
            const size_t colon = text.find( u": " );
            if( colon > 0 && colon != GWString::npos ) out.set( text.substr( 0, colon ), text.substr( colon + 2 ) );
        }
        return out;
    }
    // All that is left, in a block of its own: a read past its end is a find.
    std::vector<char> rest( )
    {
        std::vector<char> out( _rest.begin( ), _rest.end( ) );
        _rest = { };
        return out;
    }

private:
    std::string_view _rest;
};
} // namespace Fuzz
