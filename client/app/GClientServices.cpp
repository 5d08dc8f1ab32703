#include "client/app/GClientServices.h"

#include "client/media/GVideoCaptureService.h"
#include "client/media/GVideoPlaybackService.h"
#include "client/signalling/GDispatchService.h"
#include "client/signalling/GSIPService.h"
#include "client/skin/GTemplate.h"

namespace
{
template <typename Service>
GThreadObject* create( GInstance* instance, GMegaPort* port )
{
    return GTRACK( GThreadObject, ( new Service( instance, port ) ) );
}

// The skin that the settings and the desktop's scale choose.
GTemplate* openTemplate( GInstance* instance )
{
    GSkinPlatform platform;
    platform.followSettings = true;
    return GSAFENEW( GTemplate, ( instance, u"template.xml", platform ) );
}

// The template with the face that the client core knows.
class TemplateSkin : public IGClientSkin
{
public:
    explicit TemplateSkin( GInstance* instance ) : _template( openTemplate( instance ) ) {}
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
