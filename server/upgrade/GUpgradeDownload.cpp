#include "server/upgrade/GUpgradeDownload.h"

#include <algorithm>

#include <boost/asio/post.hpp>

namespace
{
constexpr uint64_t BLOCK_SIZE = 131072;
constexpr auto RETRY_PERIOD = std::chrono::milliseconds( 10 );
constexpr int MAX_TRIES = 3000; // 30 seconds in which no block was taken.
} // namespace

GUpgradeDownload::GUpgradeDownload( boost::asio::io_context& io, boost::asio::thread_pool& pool,
                                    GStreamServer::Connection connection, const GString& file )
    : _io( io ), _pool( pool ), _connection( std::move( connection ) ), _timer( io ), _stream( file, std::ios::binary )
{
}

void GUpgradeDownload::start( const GString& header, uint64_t size )
{
    _left = size;
    _connection->setBusy( true );
    if( !_connection->send( header ) ) return _end( );
    _read( );
}
void GUpgradeDownload::_read( )
{
    if( !_left || !_connection->isOpen( ) ) return _end( );
    boost::asio::post( _pool,
                       [self = shared_from_this( )]
                       {
                           self->_block.resize( static_cast<size_t>( std::min( self->_left, BLOCK_SIZE ) ) );
                           self->_stream.read( self->_block.data( ),
                                               static_cast<std::streamsize>( self->_block.size( ) ) );
                           boost::asio::post( self->_io, [self] { self->_send( ); } );
                       } );
}
void GUpgradeDownload::_send( )
{
    // A file that has shrunk can't keep what its header promised.
    if( !_stream || !_connection->isOpen( ) ) return _connection->close( );
    if( _connection->send( _block ) )
    {
        _left -= _block.size( );
        _tries = 0;
        return _read( );
    }
    if( ++_tries > MAX_TRIES ) return _connection->close( );
    _timer.expires_after( RETRY_PERIOD );
    _timer.async_wait(
        [self = shared_from_this( )]( const boost::system::error_code& code )
        {
            if( !code ) self->_send( );
        } );
}
void GUpgradeDownload::_end( )
{
    _connection->setBusy( false );
    _connection->finish( );
}
