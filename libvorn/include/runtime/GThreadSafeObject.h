// An object with one recursive lock.
#pragma once

#include "platform/GThread.h"
#include "runtime/GObject.h"

class GThreadSafeObject : public GHeapObject
{
public:
    GThreadSafeObject( );
    ~GThreadSafeObject( ) override;
    void lock( ) const;
    void unlock( ) const;

private:
    GMutex _mutex;
};

// Holds an object's lock for a scope.
class GObjectLock
{
public:
    explicit GObjectLock( const GThreadSafeObject& object ) : _object( object ) { _object.lock( ); }
    ~GObjectLock( ) { _object.unlock( ); }
    GObjectLock( const GObjectLock& ) = delete;
    GObjectLock& operator=( const GObjectLock& ) = delete;

private:
    const GThreadSafeObject& _object;
};
