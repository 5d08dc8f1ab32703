// A settings file of any bytes loads, saves, and loads again without a report.
#include "base/GUtil.h"
#include "runtime/GInstance.h"

#include <memory>

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    const GWString path = u"fuzz_settings.ini";
    if( !GFileSave( path, reinterpret_cast<const char*>( data ), static_cast<int64_t>( size ) ) ) return 0;
    for( int i = 0; i < 2; ++i )
    {
        const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( path ) ) );
        instance->logDump( );
    }
    return 0;
}
