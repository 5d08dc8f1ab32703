// Shared libraries that are loaded when their first function is needed: what few runs need must not slow every start. Any thread;
// nothing is unloaded.
#pragma once

// The address of a function, or null when the library or the function is not there. `library` is its name for the loader.
void* GLibraryFind( const char* library, const char* function );
