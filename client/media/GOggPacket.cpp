#include "client/media/GOggPacket.h"

#include "base/GBytes.h"
#include "base/GUtil.h"

namespace
{
constexpr int FIXED_SIZE = 28;
}

void GSerialize( const ogg_packet& oggPacket, GString& buffer )
{
    GSerialize( static_cast<uint32_t>( oggPacket.b_o_s ), buffer );
    GSerialize( static_cast<uint32_t>( oggPacket.e_o_s ), buffer );
    GSerialize( static_cast<uint64_t>( oggPacket.granulepos ), buffer );
    GSerialize( static_cast<uint64_t>( oggPacket.packetno ), buffer );
    GSerialize( static_cast<uint32_t>( oggPacket.bytes ), buffer );
    if( oggPacket.bytes > 0 )
        buffer.append( reinterpret_cast<const char*>( oggPacket.packet ), static_cast<size_t>( oggPacket.bytes ) );
}

int GDeserialize( const char* buffer, int length, ogg_packet& oggPacket )
{
    oggPacket = ogg_packet( );
    if( !buffer || length < FIXED_SIZE ) return 0;
    const uint32_t bytes = GReadU32( buffer + 24 );
    if( bytes > static_cast<uint32_t>( length - FIXED_SIZE ) ) return 0;
    oggPacket.b_o_s = static_cast<int32_t>( GReadU32( buffer ) );
    oggPacket.e_o_s = static_cast<int32_t>( GReadU32( buffer + 4 ) );
    oggPacket.granulepos = static_cast<ogg_int64_t>( GReadU64( buffer + 8 ) );
    oggPacket.packetno = static_cast<ogg_int64_t>( GReadU64( buffer + 16 ) );
    oggPacket.bytes = static_cast<long>( bytes );
    // The codec's interface takes a pointer to non-const bytes but only reads them.
    if( bytes ) oggPacket.packet = reinterpret_cast<unsigned char*>( const_cast<char*>( buffer + FIXED_SIZE ) );
    return FIXED_SIZE + static_cast<int>( bytes );
}
