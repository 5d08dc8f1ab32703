#include "client/skin/GSkinReload.h"

#include "client/drawing/GImageTools.h"
#include "client/skin/GTemplate.h"
#include "client/skin/GTemplateFactory.h"
#include "client/skin/nodes/GNodeTools.h"
#include "client/skin/nodes/GWizardNode.h"
#include "platform/GTime.h"

#include <filesystem>

namespace
{
// Between two looks at the file and the desktop; settings are looked at on every tick.
constexpr uint64_t LOOK_INTERVAL = 1000000;

// Tells one state of a file from another; 0 for none.
int64_t getStamp( const GWString& file )
{
    std::error_code error;
    const std::filesystem::path path( GWideToUTF8( file ) );
    const auto time = std::filesystem::last_write_time( path, error ).time_since_epoch( ).count( );
    if( error ) return 0;
    const auto size = std::filesystem::file_size( path, error );
    // Counted without a sign: the clock of files starts far from now.
    return error ? 0 : static_cast<int64_t>( static_cast<uint64_t>( time ) * 31 + size );
}

// The path of `node` below `from`; empty when it is not there.
GWString getPathBelow( const GTemplateNode* node, const GTemplateNode& from )
{
    if( !node || !node->getPath( ).starts_with( from.getPath( ) + u"/" ) ) return { };
    return node->getPath( ).substr( from.getPath( ).size( ) + 1 );
}
} // namespace

GSkinReload::GSkinReload( GTemplate& engine, const GWString& filename, std::function<void( )> wake )
    : _engine( engine ), _filename( filename ), _settings( engine.getInstance( ), wake )
{
    _settings.watch( { u"Skin_Palette", u"Skin_Scale", u"Skin_Reload" } );
    const GSkinPlatform& platform = engine.getPlatform( );
    if( platform.followSettings )
    {
        _choice.emplace( *engine.getInstance( ), platform.getScale );
        platform.followScale( std::move( wake ) );
    }
    _stamp = getStamp( getFile( ) );
}

GSkinReload::~GSkinReload( )
{
    if( _choice ) _engine.getPlatform( ).followScale( nullptr );
}

void GSkinReload::onTick( )
{
    if( _choice && _choice->update( ) ) _requested = true;
    const uint64_t now = GTimeGetTime( );
    if( now - _lastLook >= LOOK_INTERVAL )
    {
        _lastLook = now;
        if( _engine.getInstance( )->test( u"Skin_Reload" ) && _hasFileChanged( ) ) _requested = true;
    }
    // A node that runs a command, or waits for a menu, must outlive it.
    if( !_requested || GNodeBusy::isBusy( ) ) return;
    _requested = false;
    _reload( );
}

bool GSkinReload::isIdle( ) const
{
    return !_requested && !_engine.getInstance( )->test( u"Skin_Reload" );
}

bool GSkinReload::_hasFileChanged( )
{
    const int64_t stamp = getStamp( getFile( ) );
    return stamp && stamp != _stamp;
}

void GSkinReload::_reload( )
{
    GCALL( GSkinReload );
    const GWString& file = getFile( );
    // Also for a file that cannot be read: it is not read again before it changes.
    _stamp = getStamp( file );
    GTemplateFactory factory( _engine.getPlatform( ) );
    GTRACK( GTemplateFactory, &factory );
    GWString error;
    GTemplateNode* root = factory.tryLoad( _engine.getInstance( ), &_engine, file, error );
    if( !root )
    {
        GLOG( u"WARNING ", error, u", keeping the skin as it is, ignoring." );
        return;
    }
    const std::vector<Kept> kept = _keep( );
    // Pictures may have changed with it, and those of another palette or scale are not needed any more.
    GImageTools_instanceForgetFiles( _engine.getInstance( ) );
    // The old windows go after the new ones have come, so that nothing flickers.
    const std::unique_ptr<GTemplateNode> old( _engine.replaceRoot( root ) );
    _restore( kept );
    GLOG( u"Skin '", file, u"' was read anew" );
}

std::vector<GSkinReload::Kept> GSkinReload::_keep( ) const
{
    std::vector<Kept> kept;
    GTemplateNode* root = _engine.getRoot( );
    for( GTemplateNode* node = root; node; node = node->getNext( root ) )
    {
        if( const auto* window = dynamic_cast<const GWindowNode*>( node ) )
        {
            auto* focus = dynamic_cast<GTemplateNode*>( window->getKeyFocus( ) );
            kept.push_back( { node->getPath( ), window->getPlace( ), GWString( ), getPathBelow( focus, *node ) } );
        }
        else if( dynamic_cast<const GWizardNode*>( node ) )
            kept.push_back( { node->getPath( ), { }, node->getAttribute( u"page" ), GWString( ) } );
    }
    return kept;
}

void GSkinReload::_restore( const std::vector<Kept>& kept )
{
    // Pages first, so that windows are drawn with them.
    for( const Kept& entry : kept )
        if( auto* wizard = dynamic_cast<GWizardNode*>( _engine.findNode( entry.path ) ) ) wizard->resume( entry.page );
    for( const Kept& entry : kept )
    {
        auto* window = dynamic_cast<GWindowNode*>( _engine.findNode( entry.path ) );
        if( !window ) continue;
        GTemplateNode* focus = entry.focus.empty( ) ? nullptr : window->getChild( entry.focus );
        window->takePlace( entry.place, dynamic_cast<IGInputHandler*>( focus ) );
    }
}
