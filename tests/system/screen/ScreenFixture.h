// An open screen handle and what tests ask of its pictures.
#pragma once

#include "platform/GScreen.h"
#include "support/TestLog.h"
#include "system/screen/TestServer.h"
#include "system/screen/TestWindows.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

class ScreenFixture : public testing::Test
{
protected:
    static constexpr GRect WHOLE = { 0, 0, 0x7FFFFFFF, 0x7FFFFFFF };

    void SetUp( ) override { screen = GScreenOpen( ); }
    void TearDown( ) override { GScreenClose( screen ); }

    bool capture( const GRect& rect = WHOLE )
    {
        buffer = GScreenCapture( screen, rect, format );
        return buffer;
    }
    // 0xAARRGGBB as the buffer has it; only for GIT_BGRA32.
    uint32_t rawAt( int x, int y ) const
    {
        uint32_t pixel = 0;
        std::memcpy( &pixel, buffer + ( static_cast<ptrdiff_t>( y ) * format.width + x ) * 4, 4 );
        return pixel;
    }
    uint16_t rawShortAt( int x, int y ) const
    {
        uint16_t pixel = 0;
        std::memcpy( &pixel, buffer + ( static_cast<ptrdiff_t>( y ) * format.width + x ) * 2, 2 );
        return pixel;
    }
    uint32_t colourAt( int x, int y ) const { return rawAt( x, y ) & 0xFFFFFF; }
    // Captures until a pixel has this colour: programs draw when they get round to it.
    bool awaitColour( int x, int y, uint32_t colour )
    {
        return awaitUntil( [&] { return capture( ) && isNear( colourAt( x, y ), colour ); } );
    }
    static bool isNear( uint32_t a, uint32_t b )
    {
        for( const int shift : { 0, 8, 16 } )
            if( std::abs( static_cast<int>( a >> shift & 0xFF ) - static_cast<int>( b >> shift & 0xFF ) ) > 3 )
                return false;
        return true;
    }
    static bool isComposited( ) { return std::getenv( "VELMORA_TEST_COMPOSITED" ) != nullptr; }
    static void setDesktopColour( const char* colour )
    {
        EXPECT_EQ( 0, std::system( ( std::string( "hsetroot -solid '" ) + colour + "' >/dev/null" ).c_str( ) ) );
    }

    void getLayout( ) { GScreenGetLayout( screen, layout, regions ); }
    bool isListed( uint32_t window ) { return getListed( window ) != layout.end( ); }
    GFragList::const_iterator getListed( uint32_t window )
    {
        getLayout( );
        auto frag = layout.cbegin( );
        while( frag != layout.cend( ) && frag->id != window ) ++frag;
        return frag;
    }

    GScreen screen = nullptr;
    GImageFormat format;
    const char* buffer = nullptr;
    GFragList layout;
    std::map<uint32_t, GFragList> regions;
};
