// The root of the skin engine: owns the node tree, runs its update and render passes, and is the command engine through which the
// skin, the tray and the client core act on the system. Also talk hotkeys, the chat log and the restart countdown.
// User-interface thread.
#pragma once

#include "client/skin/GSkinPlatform.h"
#include "client/skin/GTemplateNode.h"
#include "client/skin/IGCommandEngine.h"
#include "client/skin/commands/GCommandCache.h"
#include "platform/GNotify.h"
#include "platform/GSystem.h"
#include "platform/GTimer.h"
#include "runtime/GHTTPHeaders.h"
#include "runtime/GInstance.h"
#include "runtime/GWatchGroup.h"

#include <map>
#include <memory>

struct GCommand;

class GSkinReload;

class GTemplate : public GHeapObject, public IGCommandEngine, public IGTimerListener, public IGNotifyListener
{
public:
    // What commands there are, by path in the order of the manual, and which names the engine sets for all nodes.
    static std::vector<GActionFamily> getActions( );
    static GNameTable getNameTable( );

    // Loads the tree, runs the first pass and assigns the first hotkey. `instance` is borrowed. Tests replace `platform`.
    GTemplate( GInstance* instance, const GWString& filename, const GSkinPlatform& platform = GSkinPlatform( ) );
    ~GTemplate( ) override;
    void invariantTest( ) const override;

    void executeCommand( const GWString& command, GTemplateNode* source, int reserved = 0 ) override;
    // For the client core and the tray: a command without a source.
    void command( const GWString& text ) { executeCommand( text, nullptr ); }
    GNotifyHandle getNotifyListener( ) override { return _notify; }
    GTemplateNode* getNode( const GWString& path, GTemplateNode* relativeTo ) override;

    void onTimer( GTimer timer ) override;
    void onNotification( int kind, uint64_t time ) override;
    // Handed on by the client core, which listens to the system.
    void onHotkeyDown( GHotkey hotkey, const GWString& name );
    void onHotkeyUp( GHotkey hotkey, const GWString& name );

    // Wraps the message in a DEVICEBROADCAST for every device of that buddy.
    void broadcastToBuddy( const GWString& buddy, const GHTTPHeaders& message );
    // Appends a line to the buddy's chat log below the working directory.
    void logCHAT( const GWString& buddy, const GHTTPHeaders& message );

    // Runs the two passes over `node` on a fresh stack; `path`: of its parent.
    void refresh( const GWString& path, GTemplateNode* node, bool refresh ) { _update( path, node, refresh ); }
    // As getNode does, for a whole path that may name nothing; silent.
    GTemplateNode* findNode( const GWString& path );
    // Reads the skin again as soon as no node is at work.
    void reloadSkin( );
    // Takes the new tree and runs its first pass. The old one becomes the caller's; its windows still show.
    GTemplateNode* replaceRoot( GTemplateNode* root );
    GTemplateNode* getRoot( ) const { return _root; }
    GTimer getTimer( ) const { return _timer; }
    GInstance* getInstance( ) const { return _instance; }
    const GSkinPlatform& getPlatform( ) const { return _platform; }

    // Turns the media to each device of the buddy up or down.
    void resetBuddyTalk( const GWString& buddy, bool enable );
    // Assigns or frees the talk hotkey of that name; the text is the key combination.
    void assignHotkey( const GWString& name, const GWString& text );
    void clearHotkey( const GWString& name );
    // Restarts the program at that time, with a countdown window in the last 30 seconds. Microseconds; 0 for none.
    void setRestartTime( uint64_t time );

private:
    void _update( const GWString& path, GTemplateNode* node, bool refresh );
    void _executeCommand( const std::vector<GCommandText>& commands, GTemplateNode* source, int reserved );
    void _dispatch( const GCommand& command );
    void _resetBuddyTalk( const GWString& buddy, bool enable );
    void _resetDeviceTalk( const GWString& id, bool enable );
    void _talkAgain( );
    GStringList _getTalkAgainList( );
    void _publishTalkAgain( ); // "Talk_Again_Buddy": whom a talk button of the skin reaches.
    void _talkTo( const GWString& buddy );
    void _updateHotkeys( );
    void _updateCountdown( );
    void _wakeTimer( );
    // Nobody is being talked to and no restart is on its way: the timer rests until one of the values that it looks at changes.
    bool _isTimerIdle( );
    void _watchTalk( );
    bool _closeHotkey( const GWString& key );
    void _holdHotkey( const GWString& name );
    void _releaseHotkey( );

    GInstance* _instance;
    GSkinPlatform _platform;
    GTemplateNode* _root = nullptr;
    GCommandCache _commands;
    std::unique_ptr<GSkinReload> _reload;
    GTimer _timer = nullptr;
    GNotifyHandle _notify = nullptr;
    GWatchGroup _talkWatches;
    GWString _watchedBuddies;
    GStringList _talkToList;
    GStringList _lastTalkToList;
    uint64_t _talkStopTime = 0;
    uint64_t _restartTime = 0;
    bool _countdownOpen = false;
    std::map<GWString, GHotkey> _hotkeys;
    bool _hotkeyDown = false;
    bool _spaceHolds = false; // The space key holds the talk that a button of the skin began.
    GWString _heldHotkey;     // The name of what is down.
};
