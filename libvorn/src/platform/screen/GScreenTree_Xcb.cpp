#include "platform/screen/GScreenTree.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace
{
// The frontmost count; a desktop has some dozens.
constexpr size_t MOST_TOPS = 4096;
constexpr size_t MOST_CLIENTS = 4096;
constexpr size_t MOST_CHILDREN = 64;
// Frames around frames.
constexpr int MOST_LEVELS = 8;

// The rectangle of a window with its border, in the coordinates of its parent.
GRect getOuterRect( const xcb_get_geometry_reply_t& geometry )
{
    return { geometry.x, geometry.y, geometry.x + geometry.width + 2 * geometry.border_width,
             geometry.y + geometry.height + 2 * geometry.border_width };
}

bool isShown( const xcb_get_window_attributes_reply_t* attributes )
{
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
           attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT;
}
} // namespace

bool GScreenTree::read( )
{
    if( !_readRoot( ) ) return false;
    _readTops( );
    _findClients( );
    // The desktop itself, for what no window covers.
    Top root;
    root.window = root.client = _connection.getRoot( );
    root.rect = { 0, 0, _width, _height };
    _tops.push_back( root );
    return _connection.isAlive( );
}

bool GScreenTree::_readRoot( )
{
    xcb_connection_t* connection = _connection.get( );
    const xcb_window_t root = _connection.getRoot( );
    const auto askedSize = xcb_get_geometry( connection, root );
    const auto askedTree = xcb_query_tree( connection, root );
    const auto askedList = xcb_get_property( connection, 0, root, _connection.getAtom( GATOM_CLIENT_LIST ),
                                             XCB_ATOM_WINDOW, 0, MOST_CLIENTS );
    const GScreenReply<xcb_get_geometry_reply_t> size( xcb_get_geometry_reply( connection, askedSize, nullptr ) );
    for( const xcb_window_t window : _getChildren( askedTree, MOST_TOPS ) )
    {
        _tops.emplace_back( );
        _tops.back( ).window = window;
    }
    const GScreenReply<xcb_get_property_reply_t> list( xcb_get_property_reply( connection, askedList, nullptr ) );
    if( !size ) return false;
    _width = size->width;
    _height = size->height;
    _takeClients( list.get( ) );
    return true;
}

void GScreenTree::_takeClients( const xcb_get_property_reply_t* list )
{
    _clients.clear( );
    if( !list || list->format != 32 ) return;
    const auto* first = static_cast<const xcb_window_t*>( xcb_get_property_value( list ) );
    _clients.assign( first, first + list->value_len );
}

// The children of a window, front first.
GScreenTree::Windows GScreenTree::_getChildren( xcb_query_tree_cookie_t asked, size_t most, xcb_window_t* parent )
{
    Windows children;
    const GScreenReply<xcb_query_tree_reply_t> tree( xcb_query_tree_reply( _connection.get( ), asked, nullptr ) );
    if( parent ) *parent = tree ? tree->parent : 0;
    if( !tree ) return children;
    const xcb_window_t* first = xcb_query_tree_children( tree.get( ) );
    const size_t count = static_cast<size_t>( xcb_query_tree_children_length( tree.get( ) ) );
    for( size_t i = 0; i < std::min( count, most ); ++i ) children.push_back( first[count - 1 - i] );
    return children;
}

// Keeps those that can be seen on the desktop.
void GScreenTree::_readTops( )
{
    xcb_connection_t* connection = _connection.get( );
    std::vector<std::pair<xcb_get_window_attributes_cookie_t, xcb_get_geometry_cookie_t>> asked;
    for( const Top& top : _tops )
        asked.emplace_back( xcb_get_window_attributes( connection, top.window ),
                            xcb_get_geometry( connection, top.window ) );
    std::vector<Top> shown;
    for( size_t i = 0; i < _tops.size( ); ++i )
    {
        const GScreenReply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply( connection, asked[i].first, nullptr ) );
        const GScreenReply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply( connection, asked[i].second, nullptr ) );
        if( !geometry || !isShown( attributes.get( ) ) ) continue;
        Top& top = _tops[i];
        top.rect = getOuterRect( *geometry );
        top.isManaged = !attributes->override_redirect;
        if( GRectHasVolume( GRectIntersect( top.rect, { 0, 0, _width, _height } ) ) ) shown.push_back( top );
    }
    _tops.swap( shown );
}

void GScreenTree::_findClients( )
{
    _findListedClients( );
    _findMarkedClients( );
    for( Top& top : _tops )
        if( !top.client ) top.client = top.window;
}

// Goes up from each window of the window manager's list to the child of the root that it stands in.
void GScreenTree::_findListedClients( )
{
    xcb_connection_t* connection = _connection.get( );
    std::map<xcb_window_t, Top*> tops;
    for( Top& top : _tops ) tops[top.window] = &top;
    std::vector<std::pair<xcb_window_t, xcb_window_t>> below; // A client and the window around it that was reached.
    for( const xcb_window_t client : _clients ) below.emplace_back( client, client );
    for( int level = 0; level < MOST_LEVELS && !below.empty( ); ++level )
    {
        std::vector<std::pair<xcb_window_t, xcb_window_t>> higher;
        std::vector<std::pair<size_t, xcb_query_tree_cookie_t>> asked;
        for( size_t i = 0; i < below.size( ); ++i )
        {
            const auto found = tops.find( below[i].second );
            if( found == tops.end( ) )
                asked.emplace_back( i, xcb_query_tree( connection, below[i].second ) );
            else if( !found->second->client )
                found->second->client = below[i].first;
        }
        for( const auto& [index, cookie] : asked )
        {
            xcb_window_t parent = 0;
            _getChildren( cookie, 0, &parent );
            if( parent && parent != _connection.getRoot( ) ) higher.emplace_back( below[index].first, parent );
        }
        below.swap( higher );
    }
}

// For window managers without a list: the program's window bears a mark.
void GScreenTree::_findMarkedClients( )
{
    std::vector<Top*> open;
    Windows windows;
    for( Top& top : _tops )
        if( top.isManaged && !top.client )
        {
            open.push_back( &top );
            windows.push_back( top.window );
        }
    const Windows marked = _findMarked( windows );
    for( size_t i = 0; i < open.size( ); ++i ) open[i]->client = marked[i];
}

// For each window itself or the child of it that bears the mark; 0 when neither does.
GScreenTree::Windows GScreenTree::_findMarked( const Windows& windows )
{
    xcb_connection_t* connection = _connection.get( );
    const xcb_atom_t mark = _connection.getAtom( GATOM_WM_STATE );
    const auto ask = [&]( xcb_window_t window )
    { return xcb_get_property( connection, 0, window, mark, XCB_GET_PROPERTY_TYPE_ANY, 0, 0 ); };
    const auto isMarked = [&]( xcb_get_property_cookie_t asked )
    {
        const GScreenReply<xcb_get_property_reply_t> reply( xcb_get_property_reply( connection, asked, nullptr ) );
        return reply && reply->type != XCB_ATOM_NONE;
    };
    Windows found( windows.size( ), 0 );
    std::vector<xcb_query_tree_cookie_t> trees;
    std::vector<xcb_get_property_cookie_t> asked;
    for( const xcb_window_t window : windows )
    {
        trees.push_back( xcb_query_tree( connection, window ) );
        asked.push_back( ask( window ) );
    }
    std::vector<std::tuple<size_t, xcb_window_t, xcb_get_property_cookie_t>> askedChildren;
    for( size_t i = 0; i < windows.size( ); ++i )
    {
        const Windows children = _getChildren( trees[i], MOST_CHILDREN );
        if( isMarked( asked[i] ) )
            found[i] = windows[i];
        else
            for( const xcb_window_t child : children ) askedChildren.emplace_back( i, child, ask( child ) );
    }
    for( const auto& [index, child, cookie] : askedChildren )
        if( isMarked( cookie ) && !found[index] ) found[index] = child;
    return found;
}

void GScreenTree::getWindows( std::vector<GScreenWindow>& windows )
{
    xcb_connection_t* connection = _connection.get( );
    struct Asked
    {
        xcb_query_tree_cookie_t tree;
        xcb_get_geometry_cookie_t geometry;
        xcb_translate_coordinates_cookie_t place;
    };
    const xcb_window_t root = _connection.getRoot( );
    std::vector<Asked> asked;
    for( const Top& top : _tops )
        if( top.window != root )
            asked.push_back( { xcb_query_tree( connection, top.client ), xcb_get_geometry( connection, top.client ),
                               xcb_translate_coordinates( connection, top.client, root, 0, 0 ) } );
    std::vector<Windows> children( _tops.size( ) );
    std::vector<GRect> contents( _tops.size( ) ); // Where children are seen, in window coordinates.
    for( size_t i = 0; i < _tops.size( ); ++i )
    {
        windows.push_back( { _tops[i].window, _tops[i].rect, {} } );
        if( i >= asked.size( ) ) continue;
        children[i] = _getChildren( asked[i].tree, MOST_CHILDREN );
        const GScreenReply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply( connection, asked[i].geometry, nullptr ) );
        const GScreenReply<xcb_translate_coordinates_reply_t> place(
            xcb_translate_coordinates_reply( connection, asked[i].place, nullptr ) );
        if( !geometry || !place ) continue;
        const int left = place->dst_x - _tops[i].rect.left;
        const int top = place->dst_y - _tops[i].rect.top;
        contents[i] = { left, top, left + geometry->width, top + geometry->height };
    }
    _readChildren( children, contents, windows );
}

void GScreenTree::_readChildren( const std::vector<Windows>& children, const std::vector<GRect>& contents,
                                 std::vector<GScreenWindow>& windows )
{
    xcb_connection_t* connection = _connection.get( );
    std::vector<std::pair<xcb_get_window_attributes_cookie_t, xcb_get_geometry_cookie_t>> asked;
    for( const Windows& some : children )
        for( const xcb_window_t child : some )
            asked.emplace_back( xcb_get_window_attributes( connection, child ), xcb_get_geometry( connection, child ) );
    auto next = asked.begin( );
    for( size_t i = 0; i < children.size( ); ++i )
        for( size_t j = 0; j < children[i].size( ); ++j, ++next )
        {
            const GScreenReply<xcb_get_window_attributes_reply_t> attributes(
                xcb_get_window_attributes_reply( connection, next->first, nullptr ) );
            const GScreenReply<xcb_get_geometry_reply_t> geometry(
                xcb_get_geometry_reply( connection, next->second, nullptr ) );
            if( !geometry || !isShown( attributes.get( ) ) ) continue;
            const GRect rect = getOuterRect( *geometry );
            const GRect& around = contents[i];
            const GRect shifted = { rect.left + around.left, rect.top + around.top, rect.right + around.left,
                                    rect.bottom + around.top };
            windows[windows.size( ) - children.size( ) + i].children.push_back( GRectIntersect( shifted, around ) );
        }
}

xcb_window_t GScreenTree::findClient( xcb_window_t window )
{
    xcb_connection_t* connection = _connection.get( );
    const auto askedTree = xcb_query_tree( connection, window );
    const auto askedList =
        xcb_get_property( connection, 0, _connection.getRoot( ), _connection.getAtom( GATOM_CLIENT_LIST ),
                          XCB_ATOM_WINDOW, 0, MOST_CLIENTS );
    xcb_window_t parent = 0;
    _getChildren( askedTree, 0, &parent );
    const GScreenReply<xcb_get_property_reply_t> list( xcb_get_property_reply( connection, askedList, nullptr ) );
    if( !parent || parent != _connection.getRoot( ) ) return 0;
    _takeClients( list.get( ) );
    _tops.clear( );
    _tops.emplace_back( );
    _tops.back( ).window = window;
    _findClients( );
    return _tops.back( ).client;
}
