// Any bytes are either no message or one that is written and read again as the same message, and of which no part is one.
#include "Fuzz.h"

namespace
{
void requireEqual( const GHTTPHeaders& a, const GHTTPHeaders& b )
{
    Fuzz::require( a.headers( ).size( ) == b.headers( ).size( ) && a.getContentCount( ) == b.getContentCount( ) );
    for( const auto& [name, value] : a.headers( ) ) Fuzz::require( b.contains( name ) && b.get( name ) == value );
    for( int i = 0; i < a.getContentCount( ); ++i ) Fuzz::require( a.getContent( i ) == b.getContent( i ) );
    Fuzz::require( a.getDebugText( ) == b.getDebugText( ) );
}
// The same headers, set one by one: what the reader shows in logs is no other text.
void requireSetAlike( const GHTTPHeaders& message )
{
    GHTTPHeaders built;
    for( const auto& [name, value] : message.headers( ) ) built.set( name, value );
    Fuzz::require( built.getDebugText( ) == message.getDebugText( ) );
}
void requireOrder( const GHTTPHeaders& message )
{
    GWString last;
    bool isFirst = true;
    for( const auto& [name, value] : message.headers( ) )
    {
        Fuzz::require( isFirst ? name.empty( ) : last < name );
        isFirst = false;
        last = name;
    }
}
// Writing loses the blanks that begin a value, so that only what has been written once comes back unchanged.
void requireRoundTrip( const GHTTPHeaders& message )
{
    const GString text = message.serialize( );
    GHTTPHeaders back;
    Fuzz::require( back.deserialize( text ) == static_cast<int>( text.size( ) ) );
    const GString again = back.serialize( );
    GHTTPHeaders last;
    Fuzz::require( last.deserialize( again ) == static_cast<int>( again.size( ) ) );
    requireEqual( back, last );
    Fuzz::require( last.serialize( ) == again );
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    // One message takes all inputs, as a reader's does; another starts afresh.
    static GHTTPHeaders reused;
    const std::vector<char> bytes = Fuzz::Input( data, size ).rest( );
    const int length = static_cast<int>( size );
    const char* const begin = bytes.empty( ) ? "" : bytes.data( );
    const int taken = reused.deserialize( begin, length );
    Fuzz::require( taken >= 0 && taken <= length );
    GHTTPHeaders message;
    Fuzz::require( message.deserialize( begin, length ) == taken );
    requireEqual( message, reused );
    if( !taken )
    {
        Fuzz::require( message.headers( ).empty( ) && !message.hasContent( ) );
        return 0;
    }
    requireOrder( message );
    requireSetAlike( message );
    requireRoundTrip( message );
    GWString uri;
    Fuzz::require( message.isMethod( message.getMethod( uri ) ) );
    Fuzz::require( message.getResponse( ) >= 0 );
    const int part = size > 1 ? ( data[0] << 8 | data[1] ) % taken : 0;
    Fuzz::require( reused.deserialize( begin, part ) == 0 && reused.deserialize( begin, taken ) == taken );
    return 0;
}
