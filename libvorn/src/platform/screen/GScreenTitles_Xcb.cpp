// What windows are called. Titles are foreign bytes: read to a bound and decoded without trust.
#include "base/GUtil.h"
#include "platform/screen/GScreenTree.h"

#include <algorithm>

namespace
{
// Of a title's bytes, in the words that a property is asked in.
constexpr uint32_t MOST_WORDS = 256;
constexpr uint32_t MOST_TYPES = 16;

std::string_view getBytes( const xcb_get_property_reply_t& property )
{
    if( property.format != 8 ) return { };
    const std::string_view bytes( static_cast<const char*>( xcb_get_property_value( &property ) ), property.value_len );
    // Further texts may follow the first.
    return bytes.substr( 0, bytes.find( '\0' ) );
}

GWString decode( const xcb_get_property_reply_t* property, xcb_atom_t utf8 )
{
    if( !property ) return { };
    const std::string_view bytes = getBytes( *property );
    if( property->type == utf8 ) return GUTF8ToWide( bytes );
    // Other types are Latin-1, at least for the characters that most titles have.
    GWString title;
    for( const char byte : bytes ) title += static_cast<char16_t>( static_cast<unsigned char>( byte ) );
    return title;
}

bool holds( const xcb_get_property_reply_t* property, xcb_atom_t a, xcb_atom_t b )
{
    if( !property || property->format != 32 ) return false;
    const auto* first = static_cast<const xcb_atom_t*>( xcb_get_property_value( property ) );
    return std::any_of( first, first + property->value_len, [=]( xcb_atom_t type ) { return type == a || type == b; } );
}
} // namespace

void GScreenTree::getTitles( std::vector<GScreenTitle>& titles )
{
    xcb_connection_t* connection = _connection.get( );
    struct Asked
    {
        xcb_get_property_cookie_t netName;
        xcb_get_property_cookie_t name;
        xcb_get_property_cookie_t type;
    };
    const auto ask = [&]( const Top& top, xcb_atom_t property, uint32_t most )
    { return xcb_get_property( connection, 0, top.client, property, XCB_GET_PROPERTY_TYPE_ANY, 0, most ); };
    std::vector<Asked> asked;
    for( const Top& top : _tops )
        asked.push_back( { ask( top, _connection.getAtom( GATOM_NET_WM_NAME ), MOST_WORDS ),
                           ask( top, XCB_ATOM_WM_NAME, MOST_WORDS ),
                           ask( top, _connection.getAtom( GATOM_WINDOW_TYPE ), MOST_TYPES ) } );
    const auto read = [&]( xcb_get_property_cookie_t cookie )
    { return GScreenReply<xcb_get_property_reply_t>( xcb_get_property_reply( connection, cookie, nullptr ) ); };
    const xcb_atom_t utf8 = _connection.getAtom( GATOM_UTF8_STRING );
    for( size_t i = 0; i < _tops.size( ); ++i )
    {
        GScreenTitle window;
        window.id = _tops[i].window;
        window.rect = _tops[i].rect;
        window.title = decode( read( asked[i].netName ).get( ), utf8 );
        const auto name = read( asked[i].name );
        if( window.title.empty( ) ) window.title = decode( name.get( ), utf8 );
        window.isDesktop = holds( read( asked[i].type ).get( ), _connection.getAtom( GATOM_TYPE_DESKTOP ),
                                  _connection.getAtom( GATOM_TYPE_DOCK ) ) ||
                           window.id == _connection.getRoot( );
        titles.push_back( std::move( window ) );
    }
}
