// The grammar of "name: value" lines that the settings file and header messages share, on bytes and without a locale:
//   blank = *( space | tab )
//   name  = +( backslash any | not backslash, CR, LF, colon )
//   value = *( backslash any | not backslash, CR, LF )
//   line  = blank name ":" blank value
// Parsers are plain values: building one costs nothing, and every repetition is a loop. The settings file is read by them;
// runtime/GHeaderScanner follows the same rules by hand, and a test holds it to these.
#pragma once

#include "base/GPortable.h"
#include "base/GUtil.h"

#include <boost/spirit/include/classic_core.hpp>

#include <string_view>
#include <vector>

namespace GLineGrammar
{
namespace spirit = boost::spirit::classic;

// One character that is none of four.
struct NoneOf : spirit::char_parser<NoneOf>
{
    using self_t = NoneOf;
    NoneOf( char a, char b, char c, char d ) : _a( a ), _b( b ), _c( c ), _d( d ) {}
    bool test( char unit ) const { return unit != _a && unit != _b && unit != _c && unit != _d; }

private:
    char _a, _b, _c, _d;
};

// What was matched, as views into the parsed bytes and still escaped.
using Matches = std::vector<std::string_view>;

struct Push
{
    Matches* matches;
    void operator( )( const char* first, const char* last ) const
    {
        matches->emplace_back( first, static_cast<size_t>( last - first ) );
    }
};

inline auto blank( )
{
    return *( spirit::ch_p( ' ' ) | spirit::ch_p( '\t' ) );
}
inline auto name( )
{
    return +( ( spirit::ch_p( '\\' ) >> spirit::anychar_p ) | NoneOf( '\\', '\r', '\n', ':' ) );
}
inline auto value( )
{
    return *( ( spirit::ch_p( '\\' ) >> spirit::anychar_p ) | NoneOf( '\\', '\r', '\n', '\n' ) );
}
inline auto line( Matches& names, Matches& values )
{
    return blank( ) >> name( )[Push{ &names }] >> spirit::ch_p( ':' ) >> blank( ) >> value( )[Push{ &values }];
}

// Warns when the lists differ in length; the number of pairs that exist.
inline size_t countPairs( const Matches& names, const Matches& values )
{
    if( names.size( ) != values.size( ) )
        GLOG( u"WARNING Corrupt headers; # names (", names.size( ), u") !=  # values (", values.size( ), u")." );
    return names.size( ) < values.size( ) ? names.size( ) : values.size( );
}
} // namespace GLineGrammar
