#include "platform/GLibrary.h"

#include <dlfcn.h>

void* GLibraryFind( const char* library, const char* function )
{
    // The loader counts and gives the same handle each time.
    void* const handle = dlopen( library, RTLD_NOW | RTLD_LOCAL );
    return handle ? dlsym( handle, function ) : nullptr;
}
