// Watches the capture devices from a thread of its own: the library tells of cameras, the sound server of microphones and of its own
// end; pipelines tell of their own; whether the server has come back, and the file of injected devices, are looked at now and then.
#pragma once

#include "platform/GThread.h"
#include "platform/capture/GCaptureLibrary.h"

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>

class GCaptureWatch
{
public:
    // GCaptureInitialize must have succeeded.
    explicit GCaptureWatch( std::function<void( )> changed );
    // Waits for a call that is running.
    ~GCaptureWatch( );
    GCaptureWatch( const GCaptureWatch& ) = delete;
    GCaptureWatch& operator=( const GCaptureWatch& ) = delete;

    // Something may have changed, for the watch of the process, if there is one. Any thread, at once.
    static void tell( );

private:
    static int _watchProc( void* self );
    static GstBusSyncReply _onMessage( GstBus* bus, GstMessage* message, gpointer self );
    static void _onSources( void* self );
    void _watch( );
    void _change( );
    bool _waitForChange( );
    bool _settle( );
    bool _lookAtFile( );
    bool _lookAtServer( );

    const std::function<void( )> _tell;
    std::filesystem::file_time_type _fileTime;
    GstDeviceMonitor* _videoMonitor; // Of cameras; microphones are the sound server's.
    bool _started = false;
    bool _hasServer = false;
    GThreadID _thread = 0;

    std::mutex _mutex;
    std::condition_variable _wake;
    bool _quit = false;
    bool _changed = false;
};
