#include "client/skin/GTemplateFactory.h"

#include "SkinTest.h"
#include "client/skin/nodes/GBorderNode.h"
#include "client/skin/nodes/GBuddyListNode.h"
#include "client/skin/nodes/GButtonNode.h"
#include "client/skin/nodes/GCellNode.h"
#include "client/skin/nodes/GCopyNode.h"
#include "client/skin/nodes/GDefaultNode.h"
#include "client/skin/nodes/GEditNode.h"
#include "client/skin/nodes/GForeachNode.h"
#include "client/skin/nodes/GGradientNode.h"
#include "client/skin/nodes/GHotkeyNode.h"
#include "client/skin/nodes/GImageNode.h"
#include "client/skin/nodes/GInputNode.h"
#include "client/skin/nodes/GListNode.h"
#include "client/skin/nodes/GProgressNode.h"
#include "client/skin/nodes/GRowNode.h"
#include "client/skin/nodes/GScrollBarNode.h"
#include "client/skin/nodes/GTableNode.h"
#include "client/skin/nodes/GTextNode.h"
#include "client/skin/nodes/GWindowNode.h"
#include "client/skin/nodes/GWizardNode.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <typeindex>

namespace
{
class GTemplateFactoryTest : public SkinTest
{
protected:
    std::unique_ptr<GTemplateNode> load( const std::string& content )
    {
        const SkinFile file( content );
        return std::unique_ptr<GTemplateNode>( factory->load( &instance, &engine, file.path ) );
    }
    std::unique_ptr<GTemplateNode> create( GWStringView name )
    {
        return std::unique_ptr<GTemplateNode>(
            GTemplateFactory::create( &instance, &engine, nullptr, GWString( name ), { } ) );
    }
    // The text of the first child below the root.
    std::string textOf( const std::string& content )
    {
        const auto root = load( "<skin>" + content + "</skin>" );
        return text( root->getChildren( ).front( )->getAttribute( u"text" ) );
    }

    TestEngine engine;
    std::unique_ptr<GTemplateFactory> factory{ GSAFENEW( GTemplateFactory, ( ) ) };
};

// Loads a skin and writes what the message box would have said.
void loadBroken( GInstance& instance, TestEngine& engine, const GWString& path )
{
    GSkinPlatform platform;
    platform.showError = []( const GWString& title, const GWString& text )
    { std::cerr << GWideToUTF8( title ) << "|" << GWideToUTF8( text ) << "|\n"; };
    GSAFENEW( GTemplateFactory, ( platform ) )->load( &instance, &engine, path );
}
} // namespace

TEST_F( GTemplateFactoryTest, EveryElementHasItsClass )
{
    const std::pair<GWStringView, std::type_index> classes[] = {
        { u"Window", typeid( GWindowNode ) },     { u"Image", typeid( GImageNode ) },
        { u"Border", typeid( GBorderNode ) },     { u"Row", typeid( GRowNode ) },
        { u"Col", typeid( GRowNode ) },           { u"Cell", typeid( GCellNode ) },
        { u"Foreach", typeid( GForeachNode ) },   { u"Input", typeid( GInputNode ) },
        { u"Button", typeid( GButtonNode ) },     { u"BuddyList", typeid( GBuddyListNode ) },
        { u"Edit", typeid( GEditNode ) },         { u"Copy", typeid( GCopyNode ) },
        { u"Gradient", typeid( GGradientNode ) }, { u"ScrollBar", typeid( GScrollBarNode ) },
        { u"Text", typeid( GTextNode ) },         { u"Wizard", typeid( GWizardNode ) },
        { u"List", typeid( GListNode ) },         { u"Progress", typeid( GProgressNode ) },
        { u"Table", typeid( GTableNode ) },       { u"Hotkey", typeid( GHotkeyNode ) },
        { u"if", typeid( GDefaultNode ) },        { u"anything", typeid( GDefaultNode ) },
        { u"Windows", typeid( GDefaultNode ) },
    };
    for( const auto& [name, type] : classes )
    {
        const auto node = create( name );
        const GTemplateNode& made = *node;
        EXPECT_EQ( std::type_index( typeid( made ) ), type ) << text( GWString( name ) );
        EXPECT_EQ( node->getName( ), name );
    }
}

TEST_F( GTemplateFactoryTest, ElementNamesIgnoreCaseAndStayAsWritten )
{
    const auto root = load( "<skin><WINDOW/></skin>" );
    GTemplateNode* window = root->getChild( u"window" );
    ASSERT_NE( window, nullptr );
    EXPECT_NE( dynamic_cast<GWindowNode*>( window ), nullptr );
    EXPECT_EQ( text( window->getName( ) ), "WINDOW" );
    EXPECT_EQ( text( window->getPath( ) ), "/skin/WINDOW" );
}

TEST_F( GTemplateFactoryTest, AttributeNamesAreLoweredAndKeepTheirOrderAndValues )
{
    const auto root = load( "<skin onOpen=\"(/A?b)\" x=\"$X &amp; more\" ID=\"\"/>" );
    const GAttributeList expected = { { u"onopen", u"(/A?b)" }, { u"x", u"$X & more" }, { u"id", u"" } };
    EXPECT_EQ( root->getAttributes( ), expected );
    EXPECT_EQ( text( root->getID( ) ), "skin" );
}

TEST_F( GTemplateFactoryTest, ChildrenStandInTheOrderOfTheFile )
{
    const auto root = load( "<skin><a/><b><c/></b><d/></skin>" );
    std::string names;
    for( GTemplateNode* node = root.get( ); node; node = node->getNext( root.get( ) ) )
        names += text( node->getName( ) ) + " ";
    EXPECT_EQ( names, "skin a b c d " );
    EXPECT_EQ( root->getChildren( ).back( )->getParent( ), root.get( ) );
}

TEST_F( GTemplateFactoryTest, CharacterDataBecomesTheTextAttribute )
{
    EXPECT_EQ( textOf( "<Text>Hello</Text>" ), "Hello" );
    EXPECT_EQ( textOf( "<Text>\n\t Hello \t\n big    world\r\n</Text>" ), "Hello big world" );
    EXPECT_EQ( textOf( "<Text text=\"A\">b</Text>" ), "Ab" );
    EXPECT_EQ( textOf( "<Text>a &amp; b &lt;c</Text>" ), "a & b <c" );
}

TEST_F( GTemplateFactoryTest, RunsAroundAChildAreTrimmedAndJoined )
{
    EXPECT_EQ( textOf( "<Text>a <b/> c</Text>" ), "ac" );
}

TEST_F( GTemplateFactoryTest, BlankCharacterDataLeavesNoTextAttribute )
{
    const auto root = load( "<skin> \n\t <a> \r\n </a> </skin>" );
    EXPECT_TRUE( root->getAttributes( ).empty( ) );
    EXPECT_TRUE( root->getChildren( ).front( )->getAttributes( ).empty( ) );
}

TEST_F( GTemplateFactoryTest, LongRunsAreTakenWhole )
{
    std::string words;
    for( int i = 0; i < 20000; ++i ) words += ( i ? " w" : "w" ) + std::to_string( i );
    EXPECT_EQ( textOf( "<Text>" + words + "</Text>" ), words );
}

TEST_F( GTemplateFactoryTest, ExternalEntitiesAreNotFetched )
{
    const SkinFile outside( "secret" );
    const GWString path = skinTestPath( "entity.xml" );
    const std::string content =
        "<!DOCTYPE skin [<!ENTITY e SYSTEM \"" + text( outside.path ) + "\">]><skin>x&e;y</skin>";
    FILE* file = fopen( text( path ).c_str( ), "wb" );
    fwrite( content.data( ), 1, content.size( ), file );
    fclose( file );
    const std::unique_ptr<GTemplateNode> root( factory->load( &instance, &engine, path ) );
    std::remove( text( path ).c_str( ) );
    EXPECT_EQ( text( root->getAttribute( u"text" ) ), "xy" );
}

TEST_F( GTemplateFactoryTest, AFactoryLoadsAgain )
{
    const SkinFile file( "<skin><a/></skin>" );
    const std::unique_ptr<GTemplateNode> one( factory->load( &instance, &engine, file.path ) );
    const std::unique_ptr<GTemplateNode> two( factory->load( &instance, &engine, file.path ) );
    EXPECT_NE( one, two );
    EXPECT_EQ( two->getChildren( ).size( ), 1u );
}

TEST_F( GTemplateFactoryTest, ABrokenSkinEndsTheProgramWithItsPlace )
{
    const SkinFile file( "<skin>\n<a>\n</skin>" );
    EXPECT_EXIT( loadBroken( instance, engine, file.path ), testing::ExitedWithCode( 1 ),
                 "Velmora Skin Error.ERROR while parsing '.*template.xml': .* on line 3, exiting\\." );
}

// Each is refused by the message, with the line that it was read to.
TEST_F( GTemplateFactoryTest, SkinsBeyondMeasureEndTheProgram )
{
    const auto repeat = []( const std::string& text, int times )
    {
        std::string out;
        for( int i = 0; i < times; ++i ) out += text;
        return out;
    };
    const auto refuses = [this]( const std::string& content, const std::string& message )
    {
        const SkinFile file( content );
        EXPECT_EXIT( loadBroken( instance, engine, file.path ), testing::ExitedWithCode( 1 ),
                     "Velmora Skin Error.ERROR while parsing '.*template.xml': " + message + ", exiting\\." );
    };
    refuses( "<skin>\n" + repeat( "<a>", 100000 ), "Elements stand too deep within each other on line 2" );
    refuses( "<skin>\n\n" + repeat( "<a/>", 100001 ), "There are too many elements on line 3" );
    refuses( "<skin>\n<a x=\"" + std::string( 2 << 20, 'x' ) + "\"/></skin>", "An attribute is too long on line 2" );
    refuses( "<skin>" + repeat( std::string( 1000, 'x' ) + "<a/>", 2000 ), "A text is too long on line 1" );
    refuses( "<skin>\n\n<a b=\"\xFF\xFE\"/></skin>", ".* on line [13]" );
    refuses( "<skin a=\"1\" a=\"2\"/>", ".* on line 1" );
    refuses( "\n\n", ".* on line 3" );
    refuses( "", ".* on line [01]" );
}

TEST_F( GTemplateFactoryTest, AFileBeyondMeasureIsNotRead )
{
    const SkinFile file( "<skin/>" );
    std::filesystem::resize_file( text( file.path ), 100u << 20u );
    EXPECT_EXIT( loadBroken( instance, engine, file.path ), testing::ExitedWithCode( 1 ),
                 "The file is too long on line 0" );
}

TEST_F( GTemplateFactoryTest, EntitiesNeitherMultiplyNorReadFiles )
{
    std::string bomb = "<!DOCTYPE skin [<!ENTITY a \"aaaaaaaaaa\">";
    for( char name = 'b'; name < 'l'; ++name )
    {
        bomb += std::string( "<!ENTITY " ) + name + " \"";
        for( int i = 0; i < 10; ++i ) bomb += std::string( "&" ) + static_cast<char>( name - 1 ) + ";";
        bomb += "\">";
    }
    const std::string long_ = "<!DOCTYPE skin [<!ENTITY l \"" + std::string( 5000, 'x' ) + "\">]>";
    for( const std::string& content :
         { bomb + "]><skin>&k;</skin>", bomb + "]><skin a=\"&k;\"/>", long_ + "<skin>&l;</skin>",
           std::string( "<!DOCTYPE skin [<!ENTITY a \"&b;\"><!ENTITY b \"&a;\">]><skin>&a;</skin>" ) } )
    {
        const SkinFile file( content );
        EXPECT_EXIT( loadBroken( instance, engine, file.path ), testing::ExitedWithCode( 1 ), "ERROR while parsing " );
    }
    // An external subset and an external parameter entity are empty.
    const auto root = load( "<!DOCTYPE skin SYSTEM \"/etc/passwd\" [<!ENTITY % p SYSTEM \"file:///dev/zero\"> %p;]>"
                            "<skin>x</skin>" );
    EXPECT_EQ( text( root->getAttribute( u"text" ) ), "x" );
}

TEST_F( GTemplateFactoryTest, ASecondOfOneIdIsWarnedOfWithItsLine )
{
    TestLog::expect( "WARNING No path leads to the second '/skin/WINDOW_A' on line 3 of '" );
    const auto root = load( "<skin>\n<Window id=\"a\"/><Window/><Window/>\n<WINDOW id=\"A\"/>"
                            "<b><Window id=\"a\"/></b></skin>" );
    EXPECT_EQ( text( root->getChild( u"window_a" )->getName( ) ), "Window" );
}

TEST_F( GTemplateFactoryTest, AMissingSkinEndsTheProgram )
{
    EXPECT_EXIT( loadBroken( instance, engine, u"no_such_template.xml" ), testing::ExitedWithCode( 1 ),
                 "ERROR while parsing 'no_such_template.xml': " );
}
