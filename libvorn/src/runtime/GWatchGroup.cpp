#include "runtime/GWatchGroup.h"

#include <algorithm>
#include <iterator>
#include <utility>

GWatchGroup::GWatchGroup( GInstance* instance, std::function<void( )> onChange )
    : _instance( instance ), _onChange( std::move( onChange ) ), _notify( GNotifyOpen( this ) )
{
}

GWatchGroup::~GWatchGroup( )
{
    watch( { } );
    GNotifyClose( _notify );
}

void GWatchGroup::watch( GStringVector names )
{
    std::sort( names.begin( ), names.end( ) );
    names.erase( std::unique( names.begin( ), names.end( ) ), names.end( ) );
    if( names == _names ) return;
    GStringVector gone;
    GStringVector come;
    std::set_difference( _names.begin( ), _names.end( ), names.begin( ), names.end( ), std::back_inserter( gone ) );
    std::set_difference( names.begin( ), names.end( ), _names.begin( ), _names.end( ), std::back_inserter( come ) );
    for( const GWString& name : gone ) _instance->unwatch( name, _notify, 0 );
    for( const GWString& name : come ) _instance->watch( name, _notify, 0 );
    _names = std::move( names );
}

void GWatchGroup::onNotification( int, uint64_t )
{
    _onChange( );
}
