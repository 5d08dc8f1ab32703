// Arithmetic of any text: the same number every time, from the table too, and plain digits without the grammar.
#include "Fuzz.h"
#include "client/skin/GAttributeState.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::allowDivision( );
    static GExpressionTable table;
    const GCalculator calculator;
    Fuzz::Input input( data, size );
    while( !input.empty( ) )
    {
        const GWString text = input.wideLine( );
        int32_t first = 0, second = 0, third = 0;
        const bool matched = calculator.calc( text, first );
        Fuzz::require( table.calc( text, second ) == matched && second == first );
        Fuzz::require( table.calc( text, third ) == matched && third == first );
        if( GCalculator::readPlain( text, third ) ) Fuzz::require( matched && third == first );
        // What follows the match changes nothing.
        if( matched && text.size( ) < GCalculator::MAX_LENGTH )
            Fuzz::require( calculator.calc( text + u"~", third ) && third == first );
    }
    Fuzz::require( table.getCalculationCount( ) <= GExpressionTable::MAX_CALCULATIONS );
    return 0;
}
