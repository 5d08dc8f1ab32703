// User ids as the skin shows and uses them: "user@domain". A name without a domain belongs to the setting "Default_Domain".
#pragma once

#include "base/GTypes.h"

class GInstance;

// True when commands, paths and blackboard names may be made from it: not empty and its own sanitised form.
bool GUserNameIsSafe( GWStringView name );
// Appends the default domain to a name that has no domain behind an "@".
GWString GUserNameComplete( GInstance& instance, const GWString& name );
// The user part of a name on the default domain, else the whole name.
GWString GUserNameShorten( GInstance& instance, const GWString& name );
// The part before the "@".
GWString GUserNameGetUser( const GWString& name );
// "chatlogs/<buddy>_chat.txt"; empty, after a warning, when the name must not become a path.
GWString GUserNameGetChatLog( const GWString& buddy );
