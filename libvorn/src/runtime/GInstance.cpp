#include "runtime/GInstance.h"

#include "base/GDebug.h"
#include "base/GLineGrammar.h"
#include "platform/GFileAside.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cstdio>

namespace
{
constexpr size_t MAX_QUEUE_LENGTH = 65536;
constexpr size_t MAX_DUMPED_VALUE = 1024;
// One count for all blackboards.
std::atomic<uint64_t> lastGeneration_ = 0;

// A folded name. Short ones are folded in place, so that a read allocates nothing.
class FoldedName
{
public:
    explicit FoldedName( GWStringView name )
    {
        if( name.size( ) > std::size( _small ) )
        {
            _large = GToLower( name );
            _view = _large;
            return;
        }
        std::transform( name.begin( ), name.end( ), _small,
                        []( char16_t unit )
                        { return GWITHIN( u'A', unit, u'Z' ) ? static_cast<char16_t>( unit + 0x20 ) : unit; } );
        _view = GWStringView( _small, name.size( ) );
    }
    FoldedName( const FoldedName& ) = delete;
    FoldedName& operator=( const FoldedName& ) = delete;
    GWStringView view( ) const { return _view; }
    GWString text( ) const { return GWString( _view ); }

private:
    char16_t _small[128];
    GWString _large;
    GWStringView _view;
};
} // namespace

GInstance::GInstance( const GWString& filename ) : _filename( filename )
{
    GCALL( GInstance );
    GPRECONDITION( filename.size( ) );
    const GObjectLock lock( *this );
    _load( );
    _changed( );
}

GInstance::~GInstance( )
{
    GCALL( GInstance );
    save( );
}

void GInstance::_load( )
{
    using namespace GLineGrammar;
    GString text;
    if( !GFileLoad( _filename, text ) ) return;
    Matches names;
    Matches values;
    const auto eol = ( spirit::ch_p( '\r' ) >> !spirit::ch_p( '\n' ) ) | spirit::ch_p( '\n' );
    spirit::parse( text.data( ), text.data( ) + text.size( ), *( line( names, values ) >> eol ) );
    const size_t pairs = countPairs( names, values );
    const uint64_t now = GTimeGetTime( );
    for( size_t i = 0; i < pairs; ++i )
        _nameValueMap[GToLower( GUTF8ToWide( GUnescape( names[i] ) ) )] = { GUnescape( values[i] ), true, now };
}

void GInstance::save( )
{
    GCALL( GInstance );
    GString out;
    lock( );
    const uint64_t number = ++_saveCount;
    for( const auto& [name, value] : _nameValueMap )
        if( value.persist && !name.empty( ) )
            out += GEscape( GWideToUTF8( name ), ": " ) + ": " + GEscape( value.value, "" ) + "\n";
    unlock( );
    out += "\n";
    // A disk takes its time: only open may hold the lock for long. Texts of two threads reach the file in the order they were built.
    const std::scoped_lock saving( _saveMutex );
    if( number > _savedCount && _write( out ) ) _savedCount = number;
}

bool GInstance::_write( const GString& out )
{
    const GFileAside file = GFileAsideOpen( GWideToUTF8( _filename ) );
    FILE* const fp = file ? GFileAsideGetStream( file ) : nullptr;
    if( !GVERIFY( fp ) ) return false;
    const bool written = GVERIFY( fwrite( out.c_str( ), 1, out.size( ), fp ) == out.size( ) );
    const bool synced = written && GVERIFY( GFileAsideSync( file ) );
    const bool closed = GVERIFY( !fclose( fp ) );
    const bool whole = synced && closed;
    return GVERIFY( GFileAsideClose( file, whole ) || !whole ) && whole;
}

void GInstance::logDump( )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    for( const auto& [name, value] : _nameValueMap )
    {
        if( value.value.empty( ) ) continue;
        // Values may hold pictures and line ends: what reaches the log is one line of bounded length.
        const GWString text =
            GUTF8ToWide( GEscape( std::string_view( value.value ).substr( 0, MAX_DUMPED_VALUE ), "" ) );
        GLOGPLAIN( u"SETTINGS: ", name, u": ", GLogMask( name, text ) );
    }
}

void GInstance::_changed( )
{
    _generation.store( ++lastGeneration_, std::memory_order_release );
}

GInstance::Value* GInstance::_find( GWStringView name )
{
    const FoldedName lname( name );
    const auto found = _nameValueMap.find( lname.view( ) );
    return found == _nameValueMap.end( ) ? nullptr : &found->second;
}

void GInstance::_notify( const GWString& lname )
{
    const auto found = _watchMap.find( lname );
    if( found == _watchMap.end( ) ) return;
    for( const Watcher& watcher : found->second ) GNotify( watcher.notify, watcher.arg );
}

// ---- Values.
void GInstance::set( GWStringView name, const GString& value, bool persist )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    const Value* const old = _find( name );
    if( old ? old->value == value : value.empty( ) ) return;
    setRaw( name, value.data( ), static_cast<int>( value.size( ) ), persist );
}
void GInstance::set( GWStringView name, GWStringView value, bool persist )
{
    set( name, GWideToUTF8( value ), persist );
}
void GInstance::set( GWStringView name, const GStringList& list, bool persist )
{
    set( name, GWStringView( GJoinList( list ) ), persist );
}
void GInstance::set( GWStringView name, int64_t value, bool persist )
{
    set( name, std::to_string( value ), persist );
}
void GInstance::setRaw( GWStringView name, const char* bytes, int length, bool persist )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    const GWString lname = FoldedName( name ).text( );
    Value& value = _nameValueMap[lname];
    value.value.assign( bytes ? bytes : "", static_cast<size_t>( bytes ? std::max( length, 0 ) : 0 ) );
    value.persist = persist;
    value.timestamp = GTimeGetTime( );
    _changed( );
    _notify( lname );
}

GWString GInstance::get( GWStringView name )
{
    GWString out;
    get( name, out );
    return out;
}
void GInstance::get( GWStringView name, GWString& out )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    GVERIFY( !name.empty( ) );
    if( const Value* const value = _find( name ) )
        GUTF8ToWide( value->value, out );
    else
        out.clear( );
}
void GInstance::get( GWStringView name, GString& out )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    GVERIFY( !name.empty( ) );
    if( const Value* const value = _find( name ) )
        out = value->value;
    else
        out.clear( );
}
bool GInstance::get( GWStringView name, GStringList& list )
{
    list = GSplitList( get( name ) );
    return !list.empty( );
}
bool GInstance::get( GWStringView name, GStringVector& vector )
{
    const GStringList list = GSplitList( get( name ) );
    vector.assign( list.begin( ), list.end( ) );
    return !vector.empty( );
}
GString GInstance::getRaw( GWStringView name )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    const Value* const value = _find( name );
    return value ? value->value : GString( );
}
uint64_t GInstance::getTimestamp( GWStringView name )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    const Value* const value = _find( name );
    return value ? value->timestamp : 0;
}
bool GInstance::isSet( GWStringView name )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    const Value* const value = _find( name );
    return value && !value->value.empty( );
}
bool GInstance::contains( GWStringView name, GWStringView item )
{
    GStringList list;
    return get( name, list ) && GListContains( list, item );
}
bool GInstance::test( GWStringView name )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    const Value* const value = _find( name );
    return value && GTest( std::string_view( value->value ) );
}
int64_t GInstance::calc( GWStringView name )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    const Value* const value = _find( name );
    return value ? GCalc( std::string_view( value->value ) ) : 0;
}

void GInstance::insert( GWStringView name, GWStringView item )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    if( !GVERIFY( !name.empty( ) ) ) return;
    GStringList list;
    get( name, list );
    if( !GListContains( list, item ) ) list.emplace_back( item );
    set( name, list, false );
}
void GInstance::remove( GWStringView name, GWStringView item )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    if( !GVERIFY( !name.empty( ) ) ) return;
    GStringList list;
    get( name, list );
    list.remove( GWString( item ) );
    set( name, list, false );
}

GString& GInstance::open( GWStringView name )
{
    GCALL( GInstance );
    lock( );
    _changed( );
    return _nameValueMap[FoldedName( name ).text( )].value;
}
void GInstance::close( GWStringView name, bool notify )
{
    GCALL( GInstance );
    const GWString lname = FoldedName( name ).text( );
    if( GVERIFY( GMAPCONTAINS( _nameValueMap, lname ) ) ) _nameValueMap[lname].timestamp = GTimeGetTime( );
    _changed( );
    if( notify ) _notify( lname );
    unlock( );
}

void GInstance::clear( GWStringView name )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    const GWString lname = FoldedName( name ).text( );
    if( lname.ends_with( u'*' ) )
    {
        const GWString base = lname.substr( 0, lname.size( ) - 1 );
        GASSERT( !base.empty( ) );
        const auto first = _nameValueMap.lower_bound( base );
        auto last = first;
        while( last != _nameValueMap.end( ) && last->first.starts_with( base ) ) ++last;
        _nameValueMap.erase( first, last );
    }
    else
        _nameValueMap.erase( lname );
    _changed( );
    _notify( lname );
}

// ---- Queues.
void GInstance::enqueue( GWStringView name, const GString& item )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    if( !GVERIFY( !name.empty( ) ) ) return;
    const GWString lname = FoldedName( name ).text( );
    std::deque<GString>& queue = _queueMap[lname];
    if( queue.size( ) >= MAX_QUEUE_LENGTH )
    {
        GLOG( u"WARNING Queue '", lname, u"' is full, dropping its oldest item, ignoring." );
        queue.pop_front( );
    }
    queue.push_back( item );
    _notify( lname );
}
void GInstance::enqueue( GWStringView name, const GHTTPHeaders& message )
{
    enqueue( name, message.serialize( ) );
}
bool GInstance::dequeue( GWStringView name, GString& out )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    if( !GVERIFY( !name.empty( ) ) ) return false;
    const FoldedName lname( name );
    const auto found = _queueMap.find( lname.view( ) );
    if( found == _queueMap.end( ) || found->second.empty( ) ) return false;
    out = std::move( found->second.front( ) );
    found->second.pop_front( );
    _notify( found->first );
    return true;
}
bool GInstance::index( GWStringView name, int i, GString& out )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    if( i < 0 || i >= length( name ) ) return false;
    const FoldedName lname( name );
    const auto found = _queueMap.find( lname.view( ) );
    if( found == _queueMap.end( ) || static_cast<size_t>( i ) >= found->second.size( ) )
    {
        GLOG( u"WARNING Somehow indexed past end of queue '", name, u", ignoring." );
        return false;
    }
    out = found->second[static_cast<size_t>( i )];
    return true;
}
int GInstance::length( GWStringView name )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    const FoldedName lname( name );
    const auto found = _queueMap.find( lname.view( ) );
    return found == _queueMap.end( ) ? 0 : static_cast<int>( found->second.size( ) );
}

// ---- Watchers.
void GInstance::watch( GWStringView name, GNotifyHandle notify, int arg )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    GPRECONDITION( notify );
    _watchMap[FoldedName( name ).text( )].push_back( { notify, arg } );
}
void GInstance::unwatch( GWStringView name, GNotifyHandle notify, int arg )
{
    GCALL( GInstance );
    const GObjectLock lock( *this );
    const auto found = _watchMap.find( FoldedName( name ).view( ) );
    if( found != _watchMap.end( ) )
    {
        const auto isSame = [&]( const Watcher& watcher ) { return watcher.notify == notify && watcher.arg == arg; };
        const auto watcher = std::find_if( found->second.begin( ), found->second.end( ), isSame );
        if( watcher != found->second.end( ) )
        {
            found->second.erase( watcher );
            if( found->second.empty( ) ) _watchMap.erase( found );
            return;
        }
    }
    GLOG( u"WARNING Unwatched '", name, u"' when it wasn't being watched." );
}
