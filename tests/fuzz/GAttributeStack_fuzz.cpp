// Expressions over attributes and blackboard values of any text: the first line is a value, the second a name, the rest expressions.
#include "Fuzz.h"
#include "client/skin/GAttributeStack.h"

namespace
{
class Listener : public IGNotifyListener
{
public:
    void onNotification( int, uint64_t ) override {}
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::allowDivision( );
    Fuzz::Input input( data, size );
    Listener listener;
    const GNotifyHandle notify = GNotifyOpen( &listener );
    {
        static GInstance* const instance = GSAFENEW( GInstance, ( u"fuzz_expressions.ini" ) );
        const GWString value = input.wideLine( );
        instance->set( u"Value", value );
        instance->set( u"List", u"a, b, c" );
        GAttributeStack stack( instance, notify );
        stack.push( u"/skin/window_a",
                    { { u"value", value }, { GToLower( input.wideLine( ) ), u"$value" }, { u"self", u"$self x" } } );
        // Each expression that does not end takes its time: a few are enough.
        for( int i = 0; i < 24 && !input.empty( ); ++i )
        {
            const GWString expression = input.wideLine( );
            const GWString once = stack.eval( expression );
            Fuzz::require( once == stack.eval( expression ) );
            Fuzz::require( stack.calc( expression ) == stack.calc( expression ) );
            stack.test( expression );
        }
        stack.pop( );
    }
    GNotifyClose( notify );
    return 0;
}
