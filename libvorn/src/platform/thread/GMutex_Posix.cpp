#include "base/GPortable.h"
#include "platform/GThread.h"

#include <pthread.h>

struct GMutexRecord
{
    pthread_mutex_t native;
};

GMutex GMutexOpen( )
{
    auto* const mutex = new GMutexRecord;
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init( &attributes );
    pthread_mutexattr_settype( &attributes, PTHREAD_MUTEX_RECURSIVE );
    pthread_mutex_init( &mutex->native, &attributes );
    pthread_mutexattr_destroy( &attributes );
    return mutex;
}
void GMutexLock( GMutex mutex )
{
    GVALIDPTR( mutex );
    GVERIFY( !pthread_mutex_lock( &mutex->native ) );
}
void GMutexUnlock( GMutex mutex )
{
    GVALIDPTR( mutex );
    GVERIFY( !pthread_mutex_unlock( &mutex->native ) );
}
void GMutexClose( GMutex mutex )
{
    GVALIDPTR( mutex );
    GVERIFY( !pthread_mutex_destroy( &mutex->native ) );
    delete mutex;
}
