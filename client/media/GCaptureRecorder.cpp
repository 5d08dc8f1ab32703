#include "client/media/GCaptureRecorder.h"

#include "base/GPortable.h"

#include <utility>

namespace
{
constexpr int BYTES_PER_SAMPLE = 2;
constexpr int FREQUENCY = 22000;
constexpr int FPS = 7;
} // namespace

GCaptureRecorder::~GCaptureRecorder( )
{
    GASSERT( !_handle );
}

bool GCaptureRecorder::open( const GWString& audioName, const GWString& videoName, int edge )
{
    GPRECONDITION( !_handle );
    _handle = GAVCaptureOpen( audioName, videoName, BYTES_PER_SAMPLE, FREQUENCY, FPS, edge, edge );
    _audio = _video = _handle;
    return _handle;
}

bool GCaptureRecorder::isWorking( GCaptureMedium medium ) const
{
    return medium == GCaptureMedium::audio ? GAVCaptureIsAudioWorking( _audio ) : GAVCaptureIsVideoWorking( _video );
}

bool GCaptureRecorder::reopen( GCaptureMedium medium, const GWString& name, int edge )
{
    GPRECONDITION( _handle );
    const bool isAudio = medium == GCaptureMedium::audio;
    const GAVCapture handle = GAVCaptureOpen( isAudio ? name : GWString( ), isAudio ? GWString( ) : name,
                                              BYTES_PER_SAMPLE, FREQUENCY, FPS, edge, edge );
    if( !handle ) return false;
    const bool works = isAudio ? GAVCaptureIsAudioWorking( handle ) : GAVCaptureIsVideoWorking( handle );
    if( !works )
        GAVCaptureClose( handle );
    else if( isAudio )
        _moveAudio( handle );
    else
        _moveVideo( handle );
    return works;
}

void GCaptureRecorder::_moveAudio( GAVCapture handle )
{
    for( IGCaptureAudioListener* listener : _audioListeners ) GAVCaptureUnsubscribeAudio( _audio, listener );
    _closeOwn( std::exchange( _audio, handle ) );
    for( IGCaptureAudioListener* listener : _audioListeners ) GAVCaptureSubscribeAudio( _audio, listener );
}

void GCaptureRecorder::_moveVideo( GAVCapture handle )
{
    for( IGCaptureVideoListener* listener : _videoListeners ) GAVCaptureUnsubscribeVideo( _video, listener );
    _closeOwn( std::exchange( _video, handle ) );
    for( IGCaptureVideoListener* listener : _videoListeners ) GAVCaptureSubscribeVideo( _video, listener );
}

// The first handle stays until the end: the other medium may be on it.
void GCaptureRecorder::_closeOwn( GAVCapture handle )
{
    if( handle != _handle ) GAVCaptureClose( handle );
}

void GCaptureRecorder::close( )
{
    if( !_handle ) return;
    GASSERT( _audioListeners.empty( ) && _videoListeners.empty( ) );
    _closeOwn( _audio );
    _closeOwn( _video );
    GAVCaptureClose( _handle );
    _handle = _audio = _video = nullptr;
}

void GCaptureRecorder::subscribeAudio( IGCaptureAudioListener* listener )
{
    GAVCaptureSubscribeAudio( _audio, listener );
    _audioListeners.push_back( listener );
}

void GCaptureRecorder::subscribeVideo( IGCaptureVideoListener* listener )
{
    GAVCaptureSubscribeVideo( _video, listener );
    _videoListeners.push_back( listener );
}

void GCaptureRecorder::unsubscribeAudio( IGCaptureAudioListener* listener )
{
    GAVCaptureUnsubscribeAudio( _audio, listener );
    std::erase( _audioListeners, listener );
}

void GCaptureRecorder::unsubscribeVideo( IGCaptureVideoListener* listener )
{
    GAVCaptureUnsubscribeVideo( _video, listener );
    std::erase( _videoListeners, listener );
}
