// Any bytes are either no message or one that is written and read again as the same message.
#include "runtime/GHTTPHeaders.h"

#include <climits>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    GHTTPHeaders message;
    const int length = static_cast<int>( size );
    const int taken = message.deserialize( reinterpret_cast<const char*>( data ), length );
    if( taken < 0 || taken > length ) abort( );
    if( !taken ) return 0;
    message.getResponse( );
    GWString uri;
    message.getMethod( uri );
    const GString text = message.serialize( );
    GHTTPHeaders back;
    if( message.contains( u"" ) && back.deserialize( text ) != static_cast<int>( text.size( ) ) ) abort( );
    if( back.getContentCount( ) != message.getContentCount( ) ) abort( );
    return 0;
}
