// Whether pixel loops may use the processor's wide registers (AVX2). Each such loop stands beside a plain one that gives the same
// bytes: it does the pixels that are left over, and all of them on other machines.
#pragma once

#if defined( __x86_64__ ) && defined( __GNUC__ )
#include <immintrin.h>
#define GIMAGE_WIDE 1
#define GIMAGE_AVX2 __attribute__( ( target( "avx2" ) ) )
#endif

// True when the machine has them and they are not turned off. Any thread.
bool GImageHasWide( );
// Tests compare both ways of a loop. Not while another thread works on pixels.
void GImageAllowWide( bool allowed );
