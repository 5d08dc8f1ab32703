#include "client/signalling/GUPnPTask.h"

#include <algorithm>

namespace
{
constexpr int64_t WAIT = 60000000;
}

GUPnPTask::GUPnPTask( const GWString& localHost, int lowPort, int highPort, const GUPnPFunctions& functions )
    : _localHost( localHost ), _lowPort( std::clamp( lowPort, 1, 65534 ) ),
      _highPort( std::clamp( highPort, _lowPort + 1, 65535 ) ), _functions( functions ), _abandonEvent( GEventOpen( ) )
{
    _thread = GThreadOpen( u"GDispatchService.UPnP", _threadProc, this );
    if( !_thread ) _opened = _done = true;
}

GUPnPTask::~GUPnPTask( )
{
    abandon( );
    if( _thread ) GThreadClose( _thread );
    GEventClose( _abandonEvent );
}

bool GUPnPTask::poll( GWString& globalHost )
{
    if( _polled || !_opened ) return false;
    _polled = true;
    globalHost = _globalHost;
    return true;
}

void GUPnPTask::abandon( )
{
    _abandoned = true;
    GEventSet( _abandonEvent );
}

int GUPnPTask::_threadProc( void* data )
{
    static_cast<GUPnPTask*>( data )->_run( );
    return 0;
}

void GUPnPTask::_run( )
{
    GCALL( GUPnPTask );
    GNetUPnPMapping* mapping = _functions.open( _localHost, _lowPort, _highPort );
    if( mapping )
    {
        _globalHost = _functions.getGlobalHost( mapping );
        if( _globalHost.empty( ) ) _globalHost = u"0.0.0.0:0";
    }
    _opened = true;
    while( mapping && !_abandoned && !GIsShuttingDown( ) ) GEventWait( _abandonEvent, WAIT );
    if( mapping ) _functions.close( mapping );
    _done = true;
}
