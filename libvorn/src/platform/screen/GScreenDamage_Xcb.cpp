// One event tells that the account is no longer empty; it is read and emptied when it is asked for, however much was drawn.
#include "platform/screen/GScreenDamage.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <poll.h>

namespace
{
// More pieces than that are told as the rectangle around them.
constexpr int MOST_RECTS = 256;

GRect toRect( const xcb_rectangle_t& area )
{
    return { area.x, area.y, area.x + area.width, area.y + area.height };
}

bool isAnswered( xcb_connection_t* connection, xcb_damage_query_version_cookie_t damage,
                 xcb_xfixes_query_version_cookie_t fixes )
{
    const GScreenReply<xcb_damage_query_version_reply_t> a(
        xcb_damage_query_version_reply( connection, damage, nullptr ) );
    const GScreenReply<xcb_xfixes_query_version_reply_t> b(
        xcb_xfixes_query_version_reply( connection, fixes, nullptr ) );
    return a && b && b->major_version >= 2;
}

void sleepFor( int64_t milliseconds )
{
    poll( nullptr, 0, static_cast<int>( milliseconds ) );
}
} // namespace

bool GScreenDamage::take( std::vector<GRect>& rects )
{
    rects.clear( );
    if( !_readEvents( ) && !( _startWatching( ) && _readEvents( ) ) ) return false;
    if( _isDamaged && !_fetch( rects ) ) return false;
    _isDamaged = false;
    if( !_isAllNew ) return true;
    if( !_readSize( ) ) return false;
    _isAllNew = false;
    rects.assign( 1, _desktop );
    return true;
}

bool GScreenDamage::wait( int64_t microseconds )
{
    using Clock = std::chrono::steady_clock;
    constexpr int64_t LONGEST = int64_t{ 3600 } * 1000000;
    const auto until = Clock::now( ) + std::chrono::microseconds( std::clamp<int64_t>( microseconds, 0, LONGEST ) );
    const bool wasWatching = _isWatching( );
    for( ;; )
    {
        // A server that has just gone is a change, too; one that can't be had is not.
        const bool isTold = _readEvents( );
        if( !isTold && ( wasWatching || _startWatching( ) ) ) return true;
        if( isTold && ( _isDamaged || _isAllNew ) ) return true;
        // Rounded up, so that the last round does not spin.
        const auto left = std::chrono::ceil<std::chrono::milliseconds>( until - Clock::now( ) ).count( );
        if( left <= 0 ) return false;
        if( !isTold )
            sleepFor( left );
        else
        {
            pollfd waiting = { xcb_get_file_descriptor( _connection.get( ) ), POLLIN, 0 };
            if( poll( &waiting, 1, static_cast<int>( left ) ) < 0 && errno != EINTR ) return false;
        }
    }
}

bool GScreenDamage::_isWatching( ) const
{
    return _generation != 0 && _generation == _connection.getGeneration( ) && _connection.isAlive( );
}

bool GScreenDamage::_startWatching( )
{
    return _connection.run( [this]( ) { return _watch( ); } );
}

// Opens the account on a new connection.
bool GScreenDamage::_watch( )
{
    _generation = 0;
    if( !_connection.has( xcb_damage_id ) || !_connection.has( xcb_xfixes_id ) ) return false;
    xcb_connection_t* connection = _connection.get( );
    if( !isAnswered( connection, xcb_damage_query_version( connection, 1, 1 ),
                     xcb_xfixes_query_version( connection, 2, 0 ) ) )
        return false;
    _damage = xcb_generate_id( connection );
    _region = xcb_generate_id( connection );
    xcb_damage_create( connection, _damage, _connection.getRoot( ), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY );
    xcb_xfixes_create_region( connection, _region, 0, nullptr );
    _event =
        static_cast<uint8_t>( xcb_get_extension_data( connection, &xcb_damage_id )->first_event + XCB_DAMAGE_NOTIFY );
    _generation = _connection.getGeneration( );
    _isDamaged = false;
    _isAllNew = true;
    return _readSize( );
}

bool GScreenDamage::_readSize( )
{
    const GScreenReply<xcb_get_geometry_reply_t> root( xcb_get_geometry_reply(
        _connection.get( ), xcb_get_geometry( _connection.get( ), _connection.getRoot( ) ), nullptr ) );
    if( root ) _desktop = { 0, 0, root->width, root->height };
    return root != nullptr;
}

// False when the account is not open or no more.
bool GScreenDamage::_readEvents( )
{
    if( !_isWatching( ) ) return false;
    _connection.readEvents( );
    _isDamaged = _connection.takeSeen( _event ) || _isDamaged;
    _isAllNew = _sizeChanges != _connection.getSizeChanges( ) || _isAllNew;
    _sizeChanges = _connection.getSizeChanges( );
    return _connection.isAlive( );
}

bool GScreenDamage::_fetch( std::vector<GRect>& rects )
{
    xcb_connection_t* connection = _connection.get( );
    xcb_damage_subtract( connection, _damage, XCB_NONE, _region );
    const GScreenReply<xcb_xfixes_fetch_region_reply_t> reply(
        xcb_xfixes_fetch_region_reply( connection, xcb_xfixes_fetch_region( connection, _region ), nullptr ) );
    if( !reply ) return false;
    const xcb_rectangle_t* pieces = xcb_xfixes_fetch_region_rectangles( reply.get( ) );
    int count = xcb_xfixes_fetch_region_rectangles_length( reply.get( ) );
    if( count > MOST_RECTS )
    {
        pieces = &reply->extents;
        count = 1;
    }
    for( int i = 0; i < count; ++i )
    {
        const GRect rect = GRectIntersect( toRect( pieces[i] ), _desktop );
        if( GRectHasVolume( rect ) ) rects.push_back( rect );
    }
    return true;
}
