// What the quick reader of the relay takes, the parser of all messages takes too, and reads the same from it.
#include "Fuzz.h"
#include "server/relay/GRelayFrame.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    const bool whole = input.byte( ) & 1;
    std::vector<char> bytes;
    if( whole )
    {
        const GString host = input.line( );
        const std::vector<char> content = input.rest( );
        GHTTPHeaders message( u"SENDUDP" );
        message.set( u"Remote-Host", GUTF8ToWide( host ) );
        message.addContent( content.data( ), static_cast<int>( content.size( ) ) );
        const GString text = message.serialize( );
        bytes.assign( text.begin( ), text.end( ) );
    }
    else
        bytes = input.rest( );
    GRelayFrame frame;
    const size_t taken = frame.read( bytes.data( ), bytes.size( ) );
    if( !taken ) return 0;
    GHTTPHeaders message;
    Fuzz::require( static_cast<size_t>( message.deserialize( bytes.data( ), static_cast<int>( bytes.size( ) ) ) ) ==
                   taken );
    Fuzz::require( message.isMethod( u"SENDUDP" ) && message.getContentCount( ) == 1 );
    Fuzz::require( message.getContent( 0 ) == GString( frame.content, frame.contentLength ) );
    uint32_t address = 0;
    unsigned short port = 0;
    Fuzz::require( GEndpoint::parse( GWideToUTF8( message.get( u"Remote-Host" ) ), address, port ) );
    Fuzz::require( address == frame.address && port == frame.port );
    GString out;
    GRelayFrame::append( out, { boost::asio::ip::address_v4( address ), port }, frame.content, frame.contentLength );
    GHTTPHeaders answer;
    Fuzz::require( answer.deserialize( out ) == static_cast<int>( out.size( ) ) && answer.getResponse( ) == 200 );
    Fuzz::require( answer.getContent( 0 ) == message.getContent( 0 ) );
    Fuzz::require( GEndpoint::parse( GWideToUTF8( answer.get( u"Remote-Host" ) ), address, port ) );
    Fuzz::require( address == frame.address && port == frame.port );
    return 0;
}
