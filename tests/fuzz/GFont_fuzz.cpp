// Font strings and colours of any text, measured and drawn.
#include "Fuzz.h"
#include "client/drawing/GFont.h"
#include "image/GColor.h"

#include <memory>

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    constexpr int EDGE = 40;
    const GImageFormat format{ GIT_RGBA32, EDGE, EDGE };
    GString pixels( EDGE * EDGE * 4, '\0' );
    const std::unique_ptr<GFont> font( GSAFENEW( GFont, ( ) ) );
    while( !input.empty( ) )
    {
        const GWString text = input.wideLine( );
        GColorPremultiply( GColorFromText( text ) );
        font->update( text );
        Fuzz::require( font->getSize( ) > 0 && font->getHeight( ) >= 0 );
        int width = input.byte( ), height = 0;
        font->measureText( text, width, height );
        const GRect rect{ input.byte( ) - 100, input.byte( ) - 100, input.byte( ), input.byte( ) };
        font->drawText( format, pixels.data( ), text, rect, { 0, 0, EDGE, EDGE } );
    }
    return 0;
}
