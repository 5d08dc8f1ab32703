#include "client/app/GClientServices.h"

#include "client/media/GVideoCaptureService.h"
#include "client/media/GVideoPlaybackService.h"
#include "client/signalling/GDispatchService.h"
#include "client/signalling/GSIPService.h"
#include "client/skin/GTemplate.h"
#include "platform/GWin.h"

namespace
{
template <typename Service>
GThreadObject* create( GInstance* instance, GMegaPort* port )
{
    return GTRACK( GThreadObject, ( new Service( instance, port ) ) );
}

// The skin as it was drawn for the desktop's scale, where there is one.
GWString templateFile( )
{
    const double scale = GWinGetScale( );
    const GWString file = scale >= 1.75 ? u"template@2x.xml" : scale >= 1.25 ? u"template@1.5x.xml" : u"template.xml";
    return GFileExists( file ) ? file : u"template.xml";
}

// The template with the face that the client core knows.
class TemplateSkin : public IGClientSkin
{
public:
    explicit TemplateSkin( GInstance* instance ) : _template( GSAFENEW( GTemplate, ( instance, templateFile( ) ) ) ) {}
    void command( const GWString& text ) override { _template->command( text ); }
    void onHotkeyDown( GHotkey hotkey, const GWString& name ) override { _template->onHotkeyDown( hotkey, name ); }
    void onHotkeyUp( GHotkey hotkey, const GWString& name ) override { _template->onHotkeyUp( hotkey, name ); }
    void broadcastToBuddy( const GWString& buddy, const GHTTPHeaders& message ) override
    {
        _template->broadcastToBuddy( buddy, message );
    }
    void logCHAT( const GWString& buddy, const GHTTPHeaders& message ) override
    {
        _template->logCHAT( buddy, message );
    }

private:
    std::unique_ptr<GTemplate> _template;
};
} // namespace

std::vector<GServiceRow> GClientServicesGet( )
{
    return {
        { u"GClient.GSIPService", create<GSIPService> },
        { u"GClient.GVideoCaptureService", create<GVideoCaptureService> },
        { u"GClient.GVideoPlaybackService", create<GVideoPlaybackService> },
        { u"GClient.GDispatchService", create<GDispatchService> },
    };
}

std::unique_ptr<IGClientSkin> GClientSkinOpen( GInstance* instance )
{
    return std::make_unique<TemplateSkin>( instance );
}
