#include "runtime/GThreadSafeObject.h"

GThreadSafeObject::GThreadSafeObject( ) : _mutex( GMutexOpen( ) ) {}
GThreadSafeObject::~GThreadSafeObject( )
{
    GMutexClose( _mutex );
}
void GThreadSafeObject::lock( ) const
{
    GCALL( GThreadSafeObject );
    GMutexLock( _mutex );
}
void GThreadSafeObject::unlock( ) const
{
    GCALL( GThreadSafeObject );
    GMutexUnlock( _mutex );
}
