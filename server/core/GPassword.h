// Passwords as argon2id texts of libsodium. Hashing takes tens of milliseconds: never on the network thread.
#pragma once

#include "base/GTypes.h"

struct GPasswordLimits
{
    uint64_t passes = 2;
    uint64_t memory = 64 << 20; // Bytes.
};

// Once, before any other call here. False when the library can't start.
bool GPasswordInitialize( );
// Empty when there is not enough memory.
GString GPasswordHash( const GString& password, const GPasswordLimits& limits );
// An empty hash costs as much as a true one and never fits, so that an unknown name can't be told by the time it takes.
bool GPasswordVerify( const GString& hash, const GString& password, const GPasswordLimits& limits );
// Random text of `length` small letters and digits.
GString GPasswordRandomText( int length );
// A short digest of bytes, as a key of tables.
GString GPasswordDigest( const GString& bytes );
