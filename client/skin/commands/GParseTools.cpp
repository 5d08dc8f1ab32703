#include "client/skin/commands/GParseTools.h"

#include <algorithm>
#include <boost/spirit/include/classic_chset.hpp>
#include <boost/spirit/include/classic_core.hpp>

namespace spirit = boost::spirit::classic;

namespace
{
using Text = const char16_t*;

auto token( char16_t character )
{
    return spirit::ch_p( character );
}
const spirit::chset<char16_t> pathStart_( u"./" );
const spirit::chset<char16_t> separator_( u"+&" );
const spirit::chset<char16_t> nameEnd_( u"=+&" );
} // namespace

void GParseTools_parseMenu( std::vector<GMenuItem>& items, GWStringView text )
{
    GStringVector labels;
    GStringVector commands;
    const auto onLabel = [&labels]( Text first, Text last ) { labels.emplace_back( first, last ); };
    const auto onCommand = [&commands]( Text first, Text last ) { commands.emplace_back( first, last ); };

    const auto label = ( *( ~token( u'(' ) ) )[onLabel];
    const auto command = ( +( ~token( u')' ) ) )[onCommand];
    const auto item = label >> token( u'(' ) >> command >> token( u')' );
    const auto menu = item >> *( token( u';' ) >> item );
    spirit::parse( text.data( ), text.data( ) + text.size( ), menu );

    items.clear( );
    for( size_t index = 0; index < std::min( labels.size( ), commands.size( ) ); ++index )
        items.push_back( { labels[index], commands[index] } );
}

GCommandText GParseTools_parseCommand( GWStringView text )
{
    GCommandText out;
    GWString name;
    GWString value;
    const auto onPath = [&out]( Text first, Text last ) { out.path.assign( first, last ); };
    const auto onName = [&name, &value]( Text first, Text last )
    {
        name.assign( first, last );
        value.clear( );
    };
    const auto onValue = [&value]( Text first, Text last ) { value.assign( first, last ); };
    const auto onPair = [&]( Text, Text )
    {
        if( value.empty( ) )
            out.args[GWString( )] = name;
        else
            out.args[name] = value;
    };

    const auto path = ( pathStart_ >> +( ~token( u'?' ) ) )[onPath];
    const auto argName = ( +( ~nameEnd_ ) )[onName];
    const auto argValue = ( +( ~separator_ ) )[onValue];
    const auto pair = ( argName >> !( token( u'=' ) >> !argValue ) >> *separator_ )[onPair];
    // Without a path the question mark that sets the arguments off may stand or not.
    const auto step = ( path >> !( token( u'?' ) >> *pair ) ) | ( !token( u'?' ) >> *pair );
    spirit::parse( text.data( ), text.data( ) + text.size( ), step );
    out.subpath = out.path;
    GParseTools_takeStep( out.subpath );
    if( const auto action = out.args.find( GWStringView( ) ); action != out.args.end( ) ) out.action = action->second;
    return out;
}

GWString GParseTools_takeStep( GWString& path )
{
    constexpr GWStringView DELIMITERS = u"/?";
    const size_t first = path.find_first_not_of( DELIMITERS );
    if( first == GWString::npos )
    {
        path.clear( );
        return { };
    }
    const size_t last = path.find_first_of( DELIMITERS, first );
    GWString step = path.substr( first, last == GWString::npos ? last : last - first );
    path = last == GWString::npos ? GWString( ) : path.substr( last + 1 );
    return step;
}
