#include "platform/common/GVideoTapFilter.h"

#include "image/GImage.h"
#include "platform/GThread.h"

#include <cstring>

namespace
{
constexpr int BITS_OF_YUY2 = 16;
constexpr int BITS_OF_RGB24 = 24;
} // namespace

bool _GVideoTapFilter::checkInputType( const GBitmapInfoHeader& header )
{
    GImageFormat format;
    bool bottomUp = false;
    if( !GImageTools_set( format, bottomUp, header ) ) return false;
    return ( format.type == GIT_YUY2 && header.bitCount == BITS_OF_YUY2 ) ||
           ( format.type == GIT_RGB24 && header.bitCount == BITS_OF_RGB24 );
}

bool _GVideoTapFilter::completeConnect( const GBitmapInfoHeader& header )
{
    _connected = checkInputType( header ) && _setFormat( header );
    return _connected;
}

// False for a second format that differs from the first.
bool _GVideoTapFilter::_setFormat( const GBitmapInfoHeader& testBIH )
{
    if( !_format.type )
    {
        GImageTools_set( _format, _flip, testBIH );
        _bitmapInfoHeader = testBIH;
        GLOG( u"Flipping input image: ", _flip ? u"yes" : u"no" );
    }
    if( testBIH == _bitmapInfoHeader ) return true;
    if( !_reportedFormat )
        GVERIFY_TEXT( testBIH == _bitmapInfoHeader,
                      "!memcmp( &_bitmapInfoHeader, &testBIH, sizeof(BITMAPINFOHEADER) )" );
    _reportedFormat = true;
    return false;
}

// True when the sample holds the whole picture.
bool _GVideoTapFilter::_checkLength( const GCaptureSample& sample )
{
    if( !sample.data )
    {
        if( !_reportedPointer )
            GLOG( u"WARNING Unable to get sample pointer, only reporting once.  Error ", sample.error );
        _reportedPointer = true;
        return false;
    }
    const int64_t size = GImageSize( _format );
    const int64_t row = size / _format.height;
    const bool padded = sample.stride > row;
    // The padding of the last row may be missing.
    const int64_t least = padded ? sample.stride * ( _format.height - 1 ) + row : size;
    const int64_t greatest = padded ? sample.stride * _format.height : size;
    if( sample.length >= least && sample.length <= greatest && ( !sample.stride || sample.stride >= row ) ) return true;
    if( !_reportedLength )
        GLOG( u"WARNING Invalid image length, should be ", greatest, u"bytes, is ", sample.length, u" (type #",
              _format.type, u", ", _format.width, u"x", _format.height, u").  Only reporting once." );
    _reportedLength = true;
    return false;
}

// The picture top-down in tight rows: the sample itself when it is so.
const char* _GVideoTapFilter::_straighten( const GCaptureSample& sample )
{
    const size_t size = static_cast<size_t>( GImageSize( _format ) );
    const size_t rows = static_cast<size_t>( _format.height );
    const size_t row = size / rows;
    const size_t stride = sample.stride ? static_cast<size_t>( sample.stride ) : row;
    if( !_flip && stride == row ) return sample.data;
    _scratch.resize( size );
    for( size_t y = 0; y < rows; y++ ) std::memcpy( _scratch.data( ) + y * row, sample.data + y * stride, row );
    if( _flip ) GImageVertMirror( _format, _scratch.data( ) );
    return _scratch.data( );
}

void _GVideoTapFilter::Transform( const GCaptureSample& sample )
{
    if( _thread != GThreadGetCurrent( ) ) GThreadRegister( u"_GVideoTapFilter" );
    _thread = GThreadGetCurrent( );
    if( !_connected ) return;
    const uint64_t time = _stamps.read( sample );
    if( !_checkLength( sample ) ) return;
    const uint64_t stamp = _stamps.next( time );
    const char* const pixels = _straighten( sample );
    const int length = static_cast<int>( GImageSize( _format ) );
    listeners.each( [&]( IGCaptureVideoListener& listener )
                    { listener.onVideoFrame( stamp, _format, pixels, length ); } );
}
