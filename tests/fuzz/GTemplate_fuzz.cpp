// A skin of any bytes loads, runs its passes and its commands, or is refused by the message that would end the program.
#include "FuzzSkin.h"

#include <memory>
#include <sanitizer/lsan_interface.h>

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::allowDivision( );
    const GWString path = u"fuzz_template.xml";
    if( !GFileSave( path, reinterpret_cast<const char*>( data ), static_cast<int64_t>( size ) ) ) return 0;
    const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( u"fuzz_template.ini" ) ) );
    // A refused skin leaves its half tree behind, as the program that ends there does.
    const __lsan::ScopedDisabler halfTree;
    try
    {
        const std::unique_ptr<GTemplate> engine(
            GSAFENEW( GTemplate, ( instance.get( ), path, FuzzSkin::answersNothing( ) ) ) );
        for( GTemplateNode* node = engine->getRoot( ); node; node = node->getNext( engine->getRoot( ) ) )
        {
            const GWString command = node->getAttribute( u"command" );
            if( !command.empty( ) ) engine->command( command );
        }
        engine->onTimer( engine->getTimer( ) );
    }
    catch( const FuzzSkin::Refused& )
    {
    }
    return 0;
}
