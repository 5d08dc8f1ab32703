// The desktop platform for tests of one program: brought up on first use, taken down at the end of the run. Needs vorn_desktop.
#pragma once

#include "platform/GSystem.h"
#include "platform/GWin.h"

#include <gtest/gtest.h>

namespace TestDesktop
{
inline void ensure( )
{
    static const bool up = []
    {
        GInitializeNonPortable( nullptr );
        return true;
    }( );
    (void)up;
}

// Delivers everything that was posted so far.
inline void pump( )
{
    bool quit = false;
    GWinPostQuit( 0 );
    while( GWinUpdate( quit ) )
    {
    }
}
} // namespace TestDesktop
