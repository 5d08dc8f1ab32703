#include "platform/GAVCapture.h"

#include "base/GPortable.h"

void GAVCaptureGetDeviceList( GStringList& audioList, GStringList& videoList )
{
    audioList.clear( );
    videoList.clear( );
}
void GAVCaptureWatchDevices( std::function<void( )> ) {}
void GAVCaptureSetLatency( int ) {}
GAVCapture GAVCaptureOpen( const GWString&, const GWString&, int, int, int, int, int )
{
    return nullptr;
}
void GAVCaptureClose( GAVCapture capture_ )
{
    GPRECONDITION( capture_ );
}
void GAVCaptureSubscribeAudio( GAVCapture capture_, IGCaptureAudioListener* )
{
    GPRECONDITION( capture_ );
}
void GAVCaptureSubscribeVideo( GAVCapture capture_, IGCaptureVideoListener* )
{
    GPRECONDITION( capture_ );
}
void GAVCaptureUnsubscribeAudio( GAVCapture capture_, IGCaptureAudioListener* )
{
    GPRECONDITION( capture_ );
}
void GAVCaptureUnsubscribeVideo( GAVCapture capture_, IGCaptureVideoListener* )
{
    GPRECONDITION( capture_ );
}
bool GAVCaptureIsAudioWorking( GAVCapture capture_ )
{
    GPRECONDITION( capture_ );
    return false;
}
bool GAVCaptureIsVideoWorking( GAVCapture capture_ )
{
    GPRECONDITION( capture_ );
    return false;
}
