// Batches of datagrams one by one, for a backend of the network family that has no call for many.
#pragma once

#include "platform/GNet.h"

#include <algorithm>

// GNetUDPPortRecvBatch by GNetUDPPortRecv.
inline int GNetRecvOneByOne( GNetUDPPort* port, GNetDatagram* const* datagrams, int count )
{
    int received = 0;
    while( received < count && GNetUDPPortRecv( port, datagrams[received]->buffer, datagrams[received]->remoteHost ) )
        ++received;
    return received;
}

// GNetUDPPortSendBatch by GNetUDPPortSend.
inline void GNetSendOneByOne( GNetUDPPort* port, const GNetOutgoing* datagrams, int count )
{
    std::for_each( datagrams, datagrams + std::max( count, 0 ),
                   [port]( const GNetOutgoing& one ) {
                       GNetUDPPortSend( port, GWString( one.remoteHost ), one.bytes.data( ),
                                        static_cast<int>( one.bytes.size( ) ) );
                   } );
}
