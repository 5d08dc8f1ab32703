// Puts a skin that was read anew into the place of the one that runs: on demand, when the settings or the desktop choose another file,
// and with the setting "Skin_Reload" whenever the file changes. Windows that were open are open again where they were, wizards show
// the same page, and nobody outside the tree notices: no command of a window runs. A file that cannot be read leaves all as it is.
// User-interface thread.
#pragma once

#include "client/skin/GSkinChoice.h"
#include "client/skin/nodes/GWindowNode.h"
#include "runtime/GWatchGroup.h"

#include <memory>
#include <optional>

class GTemplate;

class GSkinReload
{
public:
    // `filename` is what the engine was told; a platform that follows the settings overrules it.
    // `wake` asks for ticks; they may end while the object is idle.
    GSkinReload( GTemplate& engine, const GWString& filename, std::function<void( )> wake );
    ~GSkinReload( );
    GSkinReload( const GSkinReload& ) = delete;
    GSkinReload& operator=( const GSkinReload& ) = delete;
    const GWString& getFile( ) const { return _choice ? _choice->getFile( ) : _filename; }

    // The tree is read at the next tick that finds no node at work.
    void request( ) { _requested = true; }
    void onTick( );
    bool isIdle( ) const;

private:
    // A window or wizard of the tree that goes, by its path.
    struct Kept
    {
        GWString path;
        GWindowPlace place;
        GWString page;  // Of a wizard.
        GWString focus; // Path below the window.
    };

    bool _hasFileChanged( );
    void _reload( );
    std::vector<Kept> _keep( ) const;
    void _restore( const std::vector<Kept>& kept );

    GTemplate& _engine;
    GWString _filename;
    std::optional<GSkinChoice> _choice;
    GWatchGroup _settings;
    bool _requested = false;
    uint64_t _lastLook = 0;
    int64_t _stamp = 0; // Of the file when it was read last.
};
