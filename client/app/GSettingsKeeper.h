// Keeps the settings file up with the settings, so that a crash or a power cut takes nothing away that was set before: what the user
// chose, where the windows stand. A disk takes its time, so the file is written on a thread of its own, which sleeps until then.
#pragma once

#include "runtime/GThreadObject.h"

class GInstance;

class GSettingsKeeper : public GThreadObject
{
public:
    // Borrowed, for longer than this object lives.
    explicit GSettingsKeeper( GInstance* instance );
    ~GSettingsKeeper( ) override; // Stops the thread.

    // The client's tick: has the settings written once they have been at rest for two seconds after a change.
    void update( );
    // How often that was asked for.
    int getAsked( ) const { return _asked; }

    int _bGThreadObject_safe_onLoop( ) override;

private:
    GInstance* _instance;
    GEvent _wake;
    uint64_t _written;  // The generation that was asked to be written.
    uint64_t _seen;     // That of the last tick,
    uint64_t _seenTime; // since then.
    int _asked = 0;
    std::atomic<bool> _due = false;
};
