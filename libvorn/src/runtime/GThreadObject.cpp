#include "runtime/GThreadObject.h"

int GThreadObject_ThreadProc( void* data )
{
    GCALL( function );
    GASSERT( data );
    auto* const object = static_cast<GThreadObject*>( data );
    const GObjectLock lock( *object );
    const GWString& name = object->_threadName;
    GLOGIF( 't', u"'", name, u"' startup (", GThreadGetCurrent( ), u")" );
    object->_bGThreadObject_safe_onStartup( );
    GLOGIF( 't', u"'", name, u"' beginning loop" );
    while( !GIsShuttingDown( ) && !object->_stop )
    {
        const int ms = object->_bGThreadObject_safe_onLoop( );
        if( ms < 0 ) break;
        object->_sleep( ms );
    }
    GLOGIF( 't', u"'", name, u"' shutting down" );
    object->_bGThreadObject_safe_onShutdown( );
    GLOGIF( 't', u"'", name, u"' shutdown" );
    return 0;
}

GThreadObject::~GThreadObject( )
{
    GVERIFY( !_thread );
}

void GThreadObject::start( const GWString& name )
{
    GCALL( GThreadObject );
    const GObjectLock lock( *this );
    GLOGIF( 't', u"Starting thread '", name, u"'" );
    GVERIFY( !_thread );
    _threadName = name;
    _stop = false;
    _thread = GThreadOpen( name, GThreadObject_ThreadProc, this );
    GASSERT( _thread );
}

void GThreadObject::stop( bool doJoin )
{
    GCALL( GThreadObject );
    GLOGIF( 't', u"Stopping thread '", _threadName, u"'" );
    _stop = true;
    if( _waker ) GVERIFY( GEventSet( _waker ) );
    if( doJoin ) join( );
}

void GThreadObject::join( )
{
    GCALL( GThreadObject );
    GLOGIF( 't', u"Joining thread '", _threadName, u"'" );
    if( !_thread ) return;
    GThreadClose( _thread );
    _thread = 0;
}

void GThreadObject::_sleep( int ms )
{
    GASSERT( ms >= 0 );
    unlock( );
    const int64_t duration = static_cast<int64_t>( ms ) * 1000;
    if( _waker && ms > 0 )
        GEventWait( _waker, duration );
    else
        GThreadSleep( duration );
    lock( );
}
