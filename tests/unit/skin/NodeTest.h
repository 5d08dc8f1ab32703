// What tests of node classes share: a blackboard, a command engine that remembers, trees from a short notation, and a layer to
// draw on.
#pragma once

#include "client/drawing/GFont.h"
#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"
#include "client/skin/GTemplateFactory.h"
#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "support/TestClock.h"
#include "support/TestDesktop.h"
#include "support/TestLog.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>

// One element with its children: Element{ u"Row", { { u"id", u"a" } }, { ... } }.
struct Element
{
    GWString name;
    GAttributeList attributes;
    std::vector<Element> children;
};

class FakeEngine : public IGCommandEngine, public IGNotifyListener
{
public:
    FakeEngine( ) : _notify( GNotifyOpen( this ) ) {}
    ~FakeEngine( ) override { GNotifyClose( _notify ); }

    void executeCommand( const GWString& command, GTemplateNode* source, int ) override
    {
        commands.push_back( GWideToUTF8( command ) );
        sources.push_back( source );
        if( onCommand ) onCommand( command );
    }
    GNotifyHandle getNotifyListener( ) override { return _notify; }
    GTemplateNode* getNode( const GWString& path, GTemplateNode* ) override
    {
        return root ? root->getChild( path.substr( GWString( u"/skin/" ).size( ) ) ) : nullptr;
    }
    void onNotification( int kind, uint64_t ) override { notifications.push_back( kind ); }

    std::vector<std::string> commands;
    std::vector<GTemplateNode*> sources;
    std::vector<int> notifications;
    std::function<void( const GWString& )> onCommand;
    GTemplateNode* root = nullptr;

private:
    GNotifyHandle _notify;
};

// A layer with its input map; positions are those of the layer.
class Canvas
{
public:
    Canvas( int width, int height )
        : format{ GIT_RGBA32, width, height },
          pixels( static_cast<size_t>( width ) * static_cast<size_t>( height ) * 4, '\0' ),
          map( static_cast<size_t>( width ) * static_cast<size_t>( height ) )
    {
        images.pushLayer( format, pixels.data( ), map.data( ) );
    }
    // 0xRRGGBBAA, premultiplied as the layer holds it.
    uint32_t at( int x, int y ) const
    {
        const size_t offset =
            4 * ( static_cast<size_t>( y ) * static_cast<size_t>( format.width ) + static_cast<size_t>( x ) );
        uint32_t value = 0;
        for( size_t i = 0; i < 4; ++i ) value = value << 8 | static_cast<unsigned char>( pixels[offset + i] );
        return value;
    }
    bool isBlank( ) const { return pixels.find_first_not_of( '\0' ) == GString::npos; }
    // The bounding rectangle of the pixels that the handler owns; empty when none.
    GRect owned( const IGInputHandler* handler ) const
    {
        GRect box = GRectAccumulator( );
        for( int y = 0; y < format.height; ++y )
            for( int x = 0; x < format.width; ++x )
                if( map[static_cast<size_t>( y * format.width + x )] == handler )
                    box = GRectUnion( box, { x, y, x + 1, y + 1 } );
        return box.left > box.right ? GRect( ) : box;
    }

    GImageFormat format;
    GString pixels;
    std::vector<IGInputHandler*> map;
    GImageStack images;
};

class NodeTest : public testing::Test
{
protected:
    NodeTest( )
    {
        TestDesktop::ensure( );
        std::remove( SETTINGS );
        instance.reset( GSAFENEW( GInstance, ( GUTF8ToWide( SETTINGS ) ) ) );
        engine = std::make_unique<FakeEngine>( );
    }
    ~NodeTest( ) override
    {
        root.reset( );
        TestDesktop::pump( );
        engine.reset( );
        instance.reset( );
        std::remove( SETTINGS );
    }

    GTemplateNode* make( const Element& element, GTemplateNode* parent )
    {
        GTemplateNode* node =
            GTemplateFactory::create( instance.get( ), engine.get( ), parent, element.name, element.attributes );
        for( const Element& child : element.children ) node->appendChild( make( child, node ) );
        return node;
    }
    // The tree of the test: `element` below <skin>.
    GTemplateNode* load( const Element& element )
    {
        root.reset( make( { u"skin", { }, { element } }, nullptr ) );
        engine->root = root.get( );
        return root->getChildren( ).front( );
    }
    template <typename NODE>
    NODE* loadAs( const Element& element )
    {
        return dynamic_cast<NODE*>( load( element ) );
    }
    // The node at a path below the loaded one's parent.
    GTemplateNode* find( GWStringView path ) { return root->getChild( path ); }
    IGInputHandler* handler( GWStringView path ) { return dynamic_cast<IGInputHandler*>( find( path ) ); }
    template <typename NODE>
    NODE* findAs( GWStringView path )
    {
        return dynamic_cast<NODE*>( find( path ) );
    }

    // One pass over the whole tree, with values in the outermost scope.
    bool update( const GAttributeList& values = { } )
    {
        GAttributeStack stack( instance.get( ), engine->getNotifyListener( ) );
        for( const auto& [name, value] : values ) stack.set( name, value );
        return root->update( stack );
    }
    // Draws the loaded node, after a pass, on a canvas of that size.
    Canvas& draw( int width, int height, bool onGrey = false )
    {
        canvas = std::make_unique<Canvas>( width, height );
        if( onGrey ) canvas->images.fillRect( { 0, 0, width, height }, 0xFF404040 );
        root->render( canvas->images );
        return *canvas;
    }
    // A plain picture on the blackboard; 0xRRGGBBAA.
    void picture( const GWString& name, int width, int height, uint32_t colour )
    {
        const GImageFormat format{ GIT_RGBA32, width, height };
        GString pixels;
        for( int i = 0; i < width * height; ++i )
            for( int shift = 24; shift >= 0; shift -= 8 ) pixels += static_cast<char>( colour >> shift & 255 );
        GImageTools_instanceWrite( instance.get( ), name, format, pixels );
    }
    static int fontHeight( const GWString& text )
    {
        const std::unique_ptr<GFont> font( GSAFENEW( GFont, ( ) ) );
        font->update( text );
        return font->getHeight( );
    }
    // The kinds that reached the engine's listener since the last call.
    std::vector<int> notifications( )
    {
        TestDesktop::pump( );
        std::vector<int> kinds;
        kinds.swap( engine->notifications );
        return kinds;
    }

    static constexpr const char* SETTINGS = "test_nodes_settings.ini";
    TestClock clock;
    std::unique_ptr<GInstance> instance;
    std::unique_ptr<FakeEngine> engine;
    std::unique_ptr<GTemplateNode> root;
    std::unique_ptr<Canvas> canvas;
};
