// The one way from the skin into the system: texts that are run as commands, and nodes that are found by their path.
// User-interface thread.
#pragma once

#include "base/GTypes.h"
#include "platform/GNotify.h"

class GTemplateNode;

class IGCommandEngine
{
public:
    virtual ~IGCommandEngine( ) = default;
    // Runs "(command)" or offers "Label(command);Label(command)" as a menu. `source`: the node that issued it, or null; borrowed for
    // the call. Never fails loudly: what cannot be done is logged as a warning. The text is read before anything runs: it may be a
    // member that its own commands write.
    virtual void executeCommand( const GWString& command, GTemplateNode* source, int reserved = 0 ) = 0;
    // The target of watches above all windows. Owned by the engine.
    virtual GNotifyHandle getNotifyListener( ) = 0;
    // "/skin/..." from the root, "../..." from `relativeTo`; null when there is none. Owned by the tree.
    // Precondition: "!path.empty( )".
    virtual GTemplateNode* getNode( const GWString& path, GTemplateNode* relativeTo ) = 0;
};
