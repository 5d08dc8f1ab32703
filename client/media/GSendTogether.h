// Collects datagrams and hands those that follow each other from one host to the port in one call. What it still holds leaves with its end.
#pragma once

#include "client/transport/GMegaPort.h"

class GSendTogether
{
public:
    // `room` is emptied first and keeps what it has grown to.
    GSendTogether( GMegaPort& port, std::vector<GNetOutgoing>& room ) : _port( port ), _datagrams( room )
    {
        _datagrams.clear( );
    }
    ~GSendTogether( ) { _flush( ); }
    GSendTogether( const GSendTogether& ) = delete;
    GSendTogether& operator=( const GSendTogether& ) = delete;

    // `from` and what the datagram points to must stay until the end.
    void add( const GWString& from, const GNetOutgoing& datagram )
    {
        if( _from && *_from != from ) _flush( );
        _from = &from;
        _datagrams.push_back( datagram );
    }

private:
    void _flush( )
    {
        if( _from ) _port.send( *_from, _datagrams );
        _datagrams.clear( );
    }

    GMegaPort& _port;
    std::vector<GNetOutgoing>& _datagrams;
    const GWString* _from = nullptr;
};
