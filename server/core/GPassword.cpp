#include "server/core/GPassword.h"

#include <sodium.h>

bool GPasswordInitialize( )
{
    return sodium_init( ) >= 0;
}

GString GPasswordHash( const GString& password, const GPasswordLimits& limits )
{
    char text[crypto_pwhash_STRBYTES];
    if( crypto_pwhash_str_alg( text, password.data( ), password.size( ), limits.passes, limits.memory,
                               crypto_pwhash_ALG_ARGON2ID13 ) != 0 )
        return { };
    return text;
}

bool GPasswordVerify( const GString& hash, const GString& password, const GPasswordLimits& limits )
{
    if( hash.empty( ) )
    {
        GPasswordHash( password, limits );
        return false;
    }
    return crypto_pwhash_str_verify( hash.c_str( ), password.data( ), password.size( ) ) == 0;
}

GString GPasswordRandomText( int length )
{
    static constexpr char LETTERS[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    GString text;
    for( int i = 0; i < length; ++i ) text += LETTERS[randombytes_uniform( sizeof( LETTERS ) - 1 )];
    return text;
}

GString GPasswordDigest( const GString& bytes )
{
    GString digest( 16, '\0' );
    crypto_generichash( reinterpret_cast<unsigned char*>( digest.data( ) ), digest.size( ),
                        reinterpret_cast<const unsigned char*>( bytes.data( ) ), bytes.size( ), nullptr, 0 );
    return digest;
}
