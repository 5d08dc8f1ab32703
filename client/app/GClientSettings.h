// The configuration vocabulary: every setting that has a fixed or a default value.
#pragma once

#include "base/GCommandLine.h"
#include "base/GTypes.h"

class GInstance;

constexpr int GCLIENT_VERSION = 764;
inline constexpr char16_t GCLIENT_USER_AGENT[] = u"Velmora/764";
inline constexpr char16_t GCLIENT_PUBLIC[] = u"Public - Allow some people to see me";
inline constexpr char16_t GCLIENT_PRIVATE[] = u"Private - Allow nobody to see me";

// What the command line says; empty or false when it says nothing.
struct GClientOptions
{
    GWString settingsPath;
    GWString avi;
    GWString host;
    GWString keepLogfiles;
    bool upgraded = false;
    bool uploadlogfiles = false;
    bool forceturn = false;
};

// Reads the start parameters. With `reset` the settings file that they name is deleted first, so that all settings return to their
// defaults.
GClientOptions GClientOptionsRead( const GCommandLine& commandLine );
// What a restart after a crash repeats of this start, behind the filter for everything. A settings file is not deleted again, and an
// upgrade not celebrated twice.
GString GClientGetRestartArgs( const GCommandLine& commandLine );
// Start parameters become settings that are not saved.
void GClientSettingsApplyOptions( GInstance* instance, const GClientOptions& options );
// Writes the fixed values, and the defaults where the settings file has none; mends the values that can't be used as they are.
void GClientSettingsApplyDefaults( GInstance* instance );
