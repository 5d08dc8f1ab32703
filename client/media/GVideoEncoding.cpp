#include "client/media/GVideoEncoding.h"

#include <algorithm>

namespace
{
constexpr int EDGE_STEP = 16;
constexpr int MAXIMUM_EDGE = 1024; // What receivers accept.

// The largest centred square whose edge is a multiple of 16.
GRect centredSquare( const GImageFormat& format )
{
    const int edge = std::min( format.width, format.height ) & ~( EDGE_STEP - 1 );
    const int left = ( format.width - edge ) / 2;
    const int top = ( format.height - edge ) / 2;
    return { left, top, left + edge, top + edge };
}

int possibleEdge( int64_t wish )
{
    return static_cast<int>( std::clamp<int64_t>( wish, EDGE_STEP, MAXIMUM_EDGE ) ) & ~( EDGE_STEP - 1 );
}
} // namespace

int GVideoEncoding_getEdge( GInstance* instance )
{
    const int64_t wish = instance->calc( u"Video_Size" );
    const int edge = possibleEdge( wish );
    if( edge != wish ) GLOG( u"WARNING Video_Size cannot be ", wish, u", taking ", edge, u"." );
    return edge;
}

void GVideoEncoding::reset( )
{
    _theoraEncoder.reset( );
    _imageFormat = GImageFormat( );
}

void GVideoEncoding::make( const GImageFormat& format, bool videoEnabled, int fps )
{
    reset( );
    _imageFormat = format;
    const GRect cropRect = centredSquare( format );
    if( GRectEmpty( cropRect ) ) return;
    const int size = GVideoEncoding_getEdge( _instance );
    if( size != cropRect.width( ) )
        GLOG( u"WARNING Non-ideal video match; will resize from ", cropRect.width( ), u" to ", size );
    GLOGIF( 'v', u"onVideoFormatSet( videoEnabled=", videoEnabled, u", fps=", fps, u", _imageFormat=( type=",
            format.type, u", width=", format.width, u", height=", format.height, u" ) )" );
    _theoraEncoder.reset( GSAFENEW( GTheoraEncoder, ( format, cropRect, size, size, std::max( fps, 1 ) ) ) );
}

void GVideoEncoding::startAfresh( bool videoEnabled, int fps )
{
    GPRECONDITION( _theoraEncoder );
    if( possibleEdge( _instance->calc( u"Video_Size" ) ) != getEdge( ) )
        make( GImageFormat( _imageFormat ), videoEnabled, fps );
    else
        _theoraEncoder->startAfresh( );
}

const GString& GVideoEncoding::encode( const char* buffer, int length )
{
    GPRECONDITION( _theoraEncoder );
    GASSERT( _theoraEncoder->getOutputWidth( ) == _theoraEncoder->getOutputHeight( ) );
    _theoraEncoder->encode( buffer, length, _frame );
    return _frame;
}
