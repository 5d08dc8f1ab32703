// A packet that reads is written again as the same bytes.
#include "Fuzz.h"
#include "client/media/GOggPacket.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    const std::vector<char> bytes = Fuzz::Input( data, size ).rest( );
    ogg_packet packet;
    const int taken = GDeserialize( bytes.data( ), static_cast<int>( bytes.size( ) ), packet );
    Fuzz::require( taken >= 0 && taken <= static_cast<int>( bytes.size( ) ) );
    if( !taken ) return 0;
    GString again;
    GSerialize( packet, again );
    Fuzz::require( again == GString( bytes.data( ), static_cast<size_t>( taken ) ) );
    return 0;
}
