// A whole engine over a small skin, with a desktop that answers as the test tells it.
#pragma once

#include "SkinTest.h"
#include "base/GForeignText.h"
#include "client/skin/GTemplate.h"

#include <memory>
#include <set>

class TemplateTest : public SkinTest
{
protected:
    // What the engine asked the desktop for, and what it answers.
    struct Desktop
    {
        std::vector<std::string> labels; // Of the last menu.
        int menus = 0;
        int choice = -1;
        GWString chosenFile;
        std::string chooserTitle;
        std::vector<std::string> opened;
        int openFailures = 0;
        bool leftButton = false;
        bool refuseHotkeys = false;
        std::map<GHotkey, std::string> hotkeys; // Text and name by handle.
        std::map<uint32_t, GWString> windows;
        uint32_t raised = 0;
        int rolls = 0;
        GRect workArea{ 10, 20, 810, 620 };
    };

    void load( const std::string& content )
    {
        file.reset( ); // It goes before another takes its name.
        file = std::make_unique<SkinFile>( "<skin>" + content + "</skin>" );
        engine.reset( GSAFENEW( GTemplate, ( &instance, file->path, makePlatform( ) ) ) );
    }
    // A window that writes "<ID>_Window" as it is opened and closed.
    static std::string window( const std::string& id, const std::string& inner = "" )
    {
        return "<Window id=\"" + id + "\" hidden=\"true\" width=\"40\" height=\"30\" onopen=\"(/system?set+name=" + id +
               "_Window+value=open)\" onclose=\"(/system?set+name=" + id + "_Window+value=closed)\">" + inner +
               "</Window>";
    }
    void run( const std::string& command, GTemplateNode* source = nullptr )
    {
        engine->executeCommand( GUTF8ToWide( command ), source );
    }
    GTemplateNode* node( GWStringView path ) { return engine->getNode( GWString( path ), nullptr ); }
    void tick( ) { engine->onTimer( timer( ) ); }
    void tickFor( int64_t microseconds )
    {
        for( int64_t passed = 0; passed < microseconds; passed += 50000 )
        {
            clock.advance( 50000 );
            tick( );
        }
    }
    GTimer timer( ) { return engine->getTimer( ); }

    GSkinPlatform makePlatform( )
    {
        GSkinPlatform platform;
        platform.executeMenu = [this]( const GStringVector& labels )
        {
            desktop.labels.clear( );
            for( const GWString& label : labels ) desktop.labels.push_back( text( GForeignTextShown( label ) ) );
            ++desktop.menus;
            return desktop.choice;
        };
        platform.chooseFile = [this]( const GWString& title )
        {
            desktop.chooserTitle = text( title );
            return desktop.chosenFile;
        };
        platform.openDocument = [this]( const GWString& path, GWString& reason )
        {
            desktop.opened.push_back( text( path ) );
            reason = u"no program";
            return desktop.openFailures-- <= 0;
        };
        platform.isLeftButtonDown = [this] { return desktop.leftButton; };
        platform.openHotkey = [this]( const GWString& keys, const GWString& name ) { return openHotkey( keys, name ); };
        platform.closeHotkey = [this]( GHotkey hotkey ) { desktop.hotkeys.erase( hotkey ); };
        platform.listWindows = [this]( std::map<uint32_t, GWString>& windows ) { windows = desktop.windows; };
        platform.raiseWindow = [this]( uint32_t id ) { desktop.raised = id; };
        platform.getWorkArea = [this] { return desktop.workArea; };
        platform.rollLog = [this] { ++desktop.rolls; };
        return platform;
    }
    GHotkey openHotkey( const GWString& keys, const GWString& name )
    {
        if( desktop.refuseHotkeys || keys.empty( ) ) return nullptr;
        static uintptr_t next = 1;
        const auto hotkey = reinterpret_cast<GHotkey>( next++ * 16 );
        desktop.hotkeys[hotkey] = text( keys ) + " " + text( name );
        return hotkey;
    }
    std::vector<std::string> hotkeys( ) const
    {
        std::vector<std::string> out;
        for( const auto& [handle, what] : desktop.hotkeys ) out.push_back( what );
        return out;
    }

    Desktop desktop;
    std::unique_ptr<SkinFile> file;
    std::unique_ptr<GTemplate> engine;
};
