#include "platform/capture/GCaptureWatch.h"

#include "platform/GAVCapture.h"
#include "platform/capture/GAVCaptureDevices.h"

#include <chrono>

namespace
{
// Between two looks at what tells nothing by itself.
constexpr std::chrono::milliseconds PERIOD( 500 );
constexpr std::chrono::seconds LONG_PERIOD( 2 );
// Devices come in groups, a headset as microphone and speaker.
constexpr std::chrono::milliseconds SETTLING( 200 );

std::filesystem::file_time_type timeOf( const GString& path )
{
    std::error_code error;
    return std::filesystem::last_write_time( path, error );
}

std::mutex watchMutex_; // Held while a watch begins and ends.
// Left alone at the end of the process: its thread may be anywhere then.
GCaptureWatch* watch_ = nullptr;
std::mutex toldMutex_;          // Held for a moment.
GCaptureWatch* told_ = nullptr; // The watch while it stands.

void setTold( GCaptureWatch* watch )
{
    const std::scoped_lock lock( toldMutex_ );
    told_ = watch;
}
} // namespace

void GCaptureWatch::tell( )
{
    const std::scoped_lock lock( toldMutex_ );
    if( told_ ) told_->_change( );
}

GCaptureWatch::GCaptureWatch( std::function<void( )> changed )
    : _tell( std::move( changed ) ), _fileTime( timeOf( GCaptureListFile( ) ) ),
      _videoMonitor( gst_device_monitor_new( ) )
{
    // Here, so that nothing that changes after the call is missed.
    gst_device_monitor_add_filter( _videoMonitor, "Video/Source", nullptr );
    _started = gst_device_monitor_start( _videoMonitor );
    GstBus* bus = gst_device_monitor_get_bus( _videoMonitor );
    gst_bus_set_sync_handler( bus, _onMessage, this, nullptr );
    gst_object_unref( bus );
    GCaptureWatchSources( _onSources, this );
    _hasServer = GCaptureIsServerThere( );
    _thread = GThreadOpen( u"GCaptureWatch", _watchProc, this );
}

GCaptureWatch::~GCaptureWatch( )
{
    GCaptureWatchSources( nullptr, nullptr );
    if( _started ) gst_device_monitor_stop( _videoMonitor );
    {
        const std::scoped_lock lock( _mutex );
        _quit = true;
    }
    _wake.notify_all( );
    GThreadClose( _thread );
    gst_object_unref( _videoMonitor );
}

int GCaptureWatch::_watchProc( void* self )
{
    static_cast<GCaptureWatch*>( self )->_watch( );
    return 0;
}

void GCaptureWatch::_watch( )
{
    while( _waitForChange( ) && _settle( ) )
    {
        _lookAtServer( ); // It may be what has gone.
        _tell( );
    }
}

void GCaptureWatch::_change( )
{
    const std::scoped_lock lock( _mutex );
    _changed = true;
    _wake.notify_all( );
}

// On the sound server's thread.
void GCaptureWatch::_onSources( void* self )
{
    static_cast<GCaptureWatch*>( self )->_change( );
}

// On a thread of the library.
GstBusSyncReply GCaptureWatch::_onMessage( GstBus*, GstMessage* message, gpointer self )
{
    const GstMessageType type = GST_MESSAGE_TYPE( message );
    if( type == GST_MESSAGE_DEVICE_ADDED || type == GST_MESSAGE_DEVICE_REMOVED || type == GST_MESSAGE_DEVICE_CHANGED )
        static_cast<GCaptureWatch*>( self )->_change( );
    gst_message_unref( message );
    return GST_BUS_DROP;
}

// False when the watch ends.
bool GCaptureWatch::_waitForChange( )
{
    auto nextLook = std::chrono::steady_clock::now( ) + LONG_PERIOD;
    while( true )
    {
        const auto period = GCaptureListFile( ).empty( ) ? LONG_PERIOD : PERIOD;
        {
            std::unique_lock lock( _mutex );
            _wake.wait_for( lock, period, [this] { return _quit || _changed; } );
            if( _quit ) return false;
            if( _changed ) return true;
        }
        if( _lookAtFile( ) ) return true;
        if( std::chrono::steady_clock::now( ) < nextLook ) continue;
        nextLook = std::chrono::steady_clock::now( ) + LONG_PERIOD;
        if( _lookAtServer( ) ) return true;
    }
}

// Until those that come together have come. False when the watch ends.
bool GCaptureWatch::_settle( )
{
    std::unique_lock lock( _mutex );
    if( _wake.wait_for( lock, SETTLING, [this] { return _quit; } ) ) return false;
    _changed = false;
    return true;
}

bool GCaptureWatch::_lookAtFile( )
{
    const std::filesystem::file_time_type time = timeOf( GCaptureListFile( ) );
    const bool changed = time != _fileTime;
    _fileTime = time;
    return changed;
}

// True when a sound server has come: that one has gone is told by the connection.
bool GCaptureWatch::_lookAtServer( )
{
    const bool had = _hasServer;
    _hasServer = GCaptureIsServerThere( );
    return _hasServer && !had;
}

void GAVCaptureWatchDevices( std::function<void( )> changed )
{
    const std::scoped_lock lock( watchMutex_ );
    setTold( nullptr );
    delete watch_;
    watch_ = changed && GCaptureInitialize( ) ? new GCaptureWatch( std::move( changed ) ) : nullptr;
    setTold( watch_ );
}
