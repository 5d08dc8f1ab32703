// A skin of any bytes loads, runs its passes and its commands, or is refused by the message that would end the program.
#include "Fuzz.h"
#include "base/GUtil.h"
#include "client/skin/GTemplate.h"

#include <memory>
#include <sanitizer/lsan_interface.h>

namespace
{
struct Refused
{
};

GSkinPlatform answersNothing( )
{
    GSkinPlatform platform;
    platform.executeMenu = []( const GStringVector& ) { return 0; };
    platform.chooseFile = []( const GWString& ) { return GWString( ); };
    platform.openDocument = []( const GWString&, GWString& ) { return true; };
    platform.isLeftButtonDown = [] { return false; };
    platform.openHotkey = []( const GWString&, const GWString& ) -> GHotkey { return nullptr; };
    platform.closeHotkey = []( GHotkey ) {};
    platform.listWindows = []( std::map<uint32_t, GWString>& ) {};
    platform.raiseWindow = []( uint32_t ) {};
    platform.getWorkArea = [] { return GRect{ 0, 0, 800, 600 }; };
    platform.showError = []( const GWString&, const GWString& ) { throw Refused( ); };
    platform.rollLog = [] {};
    return platform;
}
} // namespace

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
        const std::unique_ptr<GTemplate> engine( GSAFENEW( GTemplate, ( instance.get( ), path, answersNothing( ) ) ) );
        for( GTemplateNode* node = engine->getRoot( ); node; node = node->getNext( engine->getRoot( ) ) )
        {
            const GWString command = node->getAttribute( u"command" );
            if( !command.empty( ) ) engine->command( command );
        }
        engine->onTimer( engine->getTimer( ) );
    }
    catch( const Refused& )
    {
    }
    return 0;
}
