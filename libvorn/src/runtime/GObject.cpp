#include "runtime/GObject.h"

#include "platform/GThread.h"

#include <cstring>
#include <map>

namespace
{
struct Tracked
{
    const char* file;
    const char* function;
    int line;
    const char* className;
};
// Order of the lines of the tally.
struct TrackedLess
{
    bool operator( )( const Tracked& a, const Tracked& b ) const
    {
        if( const int order = strcmp( a.file, b.file ) ) return order < 0;
        if( const int order = strcmp( a.function, b.function ) ) return order < 0;
        if( a.line != b.line ) return a.line < b.line;
        return strcmp( a.className, b.className ) < 0;
    }
};
using TrackerMap = std::map<const GHeapObject*, Tracked>;

// Both live as long as the process: an object may die after the last static one.
GMutex trackerMutex( )
{
    static const GMutex mutex = GMutexOpen( );
    return mutex;
}
TrackerMap& trackerMap( )
{
    static auto* const map = new TrackerMap;
    return *map;
}
} // namespace

void GObject::invariantTest( ) const
{
    GVALIDPTR( this );
}

GHeapObject::GHeapObject( )
{
    GObject::invariantTest( );
    trackerMutex( );
}

GHeapObject::~GHeapObject( )
{
    const GMutexScope lock( trackerMutex( ) );
    if( !trackerMap( ).erase( this ) )
        GLOG( u"WARNING Object not tracked on destruction.  Did you forget to use GSAFENEW or GTRACK?" );
}

void GHeapObject::trackObject( GHeapObject* object, const char* file, const char* function, int line,
                               const char* className )
{
    const GMutexScope lock( trackerMutex( ) );
    GVERIFY_TEXT( !GMAPCONTAINS( trackerMap( ), object ), "!GMAPCONTAINS( _objectTrackerMap, this )" );
    trackerMap( )[object] = { file, function, line, className };
}

void GHeapObject::logStatus( )
{
    const GMutexScope lock( trackerMutex( ) );
    if( trackerMap( ).empty( ) )
    {
        GLOGPLAIN( u"Leaked Object Tally: (none)" );
        return;
    }
    std::map<Tracked, int, TrackedLess> tally;
    for( const auto& [object, tracked] : trackerMap( ) ) ++tally[tracked];
    GLOGPLAIN( u"Leaked Object Tally: ", trackerMap( ).size( ), u" objects in ", tally.size( ), u" classes." );
    for( const auto& [tracked, count] : tally )
        GLOGPLAIN( u"- ", tracked.file, u" -> ", tracked.function, u" (", tracked.line, u"): new ", tracked.className,
                   u"( ) = ", count );
}
