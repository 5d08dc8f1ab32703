// Object bases: a checkable object, and a heap object whose allocation is tallied.
// Heap objects are made with GSAFENEW or handed to GTRACK; whatever is still tallied at the end was leaked.
#pragma once

#include "base/GPortable.h"

class GObject
{
public:
    // Tests the object's own invariants and then its base's; a failure aborts.
    virtual void invariantTest( ) const;
    virtual ~GObject( ) = default;
};

class GStackObject : public GObject
{
};

class GHeapObject : public GObject
{
public:
    GHeapObject( );
    ~GHeapObject( ) override;
    GHeapObject( const GHeapObject& ) = delete;
    GHeapObject& operator=( const GHeapObject& ) = delete;

    // Enters an object made elsewhere into the tally; all four strings must be constants.
    static void trackObject( GHeapObject* object, const char* file, const char* function, int line,
                             const char* className );
    template <typename T>
    static T* trackMemory( T* pointer, const char* file, const char* function, int line, const char* className )
    {
        trackObject( pointer, file, function, line, className );
        return pointer;
    }
    // Logs "Leaked Object Tally: ..." and a line a place of allocation.
    static void logStatus( );
};

// GSAFENEW( GHTTPClient, ( host, request ) )
#define GSAFENEW( Class, arguments )                                                                                   \
    GHeapObject::trackMemory( new Class arguments, __FILE__, __FUNCTION__, __LINE__, #Class )
#define GTRACK( Class, pointer ) GHeapObject::trackMemory( pointer, __FILE__, __FUNCTION__, __LINE__, #Class )
