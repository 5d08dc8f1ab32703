// What the tests of the skin engine share: a blackboard of their own, an engine that writes down its commands, a node that writes
// down its passes, a skin file, and a platform that answers by itself.
#pragma once

#include "base/GUtil.h"
#include "client/skin/GSkinPlatform.h"
#include "client/skin/GTemplateFactory.h"
#include "client/skin/GTemplateNode.h"
#include "support/TestClock.h"
#include "support/TestDesktop.h"
#include "support/TestLog.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>

inline GWString skinTestPath( const std::string& name )
{
    return GUTF8ToWide( testing::TempDir( ) + "skin_" + std::to_string( getpid( ) ) + "_" + name );
}

class TestEngine : public IGCommandEngine, public IGNotifyListener
{
public:
    TestEngine( ) : notify( GNotifyOpen( this ) ) {}
    ~TestEngine( ) override { GNotifyClose( notify ); }
    void executeCommand( const GWString& command, GTemplateNode* source, int ) override
    {
        commands.push_back( GWideToUTF8( command ) );
        lastSource = source;
    }
    GNotifyHandle getNotifyListener( ) override { return notify; }
    GTemplateNode* getNode( const GWString&, GTemplateNode* ) override { return nullptr; }
    void onNotification( int kind, uint64_t ) override { kinds.push_back( kind ); }

    GNotifyHandle notify;
    std::vector<std::string> commands;
    std::vector<int> kinds;
    GTemplateNode* lastSource = nullptr;
};

class SkinTest : public testing::Test
{
protected:
    SkinTest( ) : settings( skinTestPath( "settings.ini" ) ), blackboard( open( settings ) ), instance( *blackboard )
    {
        GAttributeStack::forgetWarnings( );
    }
    ~SkinTest( ) override
    {
        TestDesktop::pump( );
        blackboard.reset( );
        std::remove( GWideToUTF8( settings ).c_str( ) );
    }

    static GInstance* open( const GWString& path )
    {
        TestDesktop::ensure( );
        std::remove( GWideToUTF8( path ).c_str( ) );
        return GSAFENEW( GInstance, ( path ) );
    }
    static std::string text( GWStringView wide ) { return GWideToUTF8( wide ); }
    std::string value( GWStringView name ) { return text( instance.get( name ) ); }
    // The oldest message of a queue, taken off it; one without a first line when there is none.
    GHTTPHeaders take( GWStringView queue )
    {
        GString item;
        GHTTPHeaders message;
        if( instance.dequeue( queue, item ) ) message.deserialize( item );
        return message;
    }

    GWString settings;
    std::unique_ptr<GInstance> blackboard;
    GInstance& instance;
    TestClock clock;
};

// Writes a skin and removes it afterwards.
class SkinFile
{
public:
    explicit SkinFile( const std::string& content ) : path( skinTestPath( "template.xml" ) )
    {
        FILE* file = fopen( GWideToUTF8( path ).c_str( ), "wb" );
        fwrite( content.data( ), 1, content.size( ), file );
        fclose( file );
    }
    ~SkinFile( ) { std::remove( GWideToUTF8( path ).c_str( ) ); }
    SkinFile( const SkinFile& ) = delete;
    SkinFile& operator=( const SkinFile& ) = delete;
    GWString path;
};
