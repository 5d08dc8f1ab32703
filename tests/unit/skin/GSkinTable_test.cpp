// Holds the tables of the skin engine against its sources: what a node reads, sets or runs stands in its table, and nothing else does.
#include "client/skin/GSkinValues.h"
#include "client/skin/GTemplate.h"
#include "client/skin/GTemplateFactory.h"

#include "base/GUtil.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace
{
using Names = std::set<std::string>;

const std::filesystem::path NODES = VELMORA_SOURCE_DIR "/client/skin/nodes";
const std::filesystem::path COMMANDS = VELMORA_SOURCE_DIR "/client/skin/commands";

std::string narrow( GWStringView text )
{
    return GWideToUTF8( GWString( text ) );
}

std::string lower( std::string text )
{
    std::ranges::transform( text, text.begin( ), []( char c ) { return static_cast<char>( std::tolower( c ) ); } );
    return text;
}

std::string load( const std::filesystem::path& path )
{
    std::ifstream file( path );
    std::stringstream out;
    out << file.rdbuf( );
    std::string text = out.str( );
    // The tables themselves are no reads.
    const std::regex table( R"re(Row [A-Z_]+\[\])re" );
    for( std::smatch found; std::regex_search( text, found, table ); )
    {
        const auto at = static_cast<size_t>( found.position( ) );
        text.erase( at, text.find( "};\n", at ) - at );
    }
    return text;
}

void collect( const std::string& text, const std::string& pattern, Names& out )
{
    const std::regex expression( pattern );
    for( std::sregex_iterator at( text.begin( ), text.end( ), expression ), end; at != end; ++at )
        out.insert( lower( ( *at )[1] ) );
}

// Names in expressions, and attributes that are read as they stand.
Names readsOf( const std::string& text )
{
    Names out;
    collect( text, R"re(u"[^"\n]*\$\{?\$?([A-Za-z0-9_.@]+)[^"\n]*")re", out );
    collect( text, R"re(getAttribute\( u"(\w+)" \))re", out );
    out.erase( "id" );
    return out;
}

Names setsOf( const std::string& text )
{
    Names out;
    collect( text, R"re(tack\.set\( u"(\w+)")re", out );
    return out;
}

// What several classes share: each function or class of a source without an element of its own, with the names that it reads.
class Helpers
{
public:
    explicit Helpers( const Names& classes )
    {
        for( const auto& entry : std::filesystem::directory_iterator( NODES ) )
        {
            const std::string stem = entry.path( ).stem( ).string( );
            if( entry.path( ).extension( ) == ".cpp" && !classes.contains( stem ) && stem != "GWindowInput" )
                _split( load( entry.path( ) ) );
        }
    }
    // What `text` reads through them, at any depth.
    void addTo( const std::string& text, Names& reads, Names& seen ) const
    {
        for( const auto& [name, body] : _bodies )
        {
            if( text.find( name ) == std::string::npos || !seen.insert( name ).second ) continue;
            const Names found = readsOf( body );
            reads.insert( found.begin( ), found.end( ) );
            addTo( body, reads, seen );
        }
    }

private:
    void _split( const std::string& text )
    {
        const std::regex head( R"re((^|\n)[A-Za-z][\w:<>&* ]*?\b(?:(\w+)::)?(~?\w+)\([^;{]*?\n\{)re" );
        std::vector<std::pair<size_t, std::string>> starts;
        for( std::sregex_iterator at( text.begin( ), text.end( ), head ), end; at != end; ++at )
            starts.emplace_back( at->position( ), ( *at )[2].matched ? ( *at )[2].str( ) : ( *at )[3].str( ) );
        for( size_t i = 0; i < starts.size( ); ++i )
        {
            const size_t end = i + 1 < starts.size( ) ? starts[i + 1].first : text.size( );
            _bodies[starts[i].second] += text.substr( starts[i].first, end - starts[i].first );
        }
    }
    std::map<std::string, std::string> _bodies;
};

// The sources of a class: its own pair, and what else is named after it.
std::string sourcesOf( const std::string& className )
{
    std::string out = load( NODES / ( className + ".cpp" ) ) + load( NODES / ( className + ".h" ) );
    if( className == "GWindowNode" ) out += load( NODES / "GWindowInput.cpp" );
    return out;
}

struct ClassTables
{
    Names attributes;
    Names names;
};
std::map<std::string, ClassTables> tablesByClass( )
{
    std::map<std::string, ClassTables> out;
    for( const GElementRow& element : GTemplateFactory::getElements( ) )
    {
        ClassTables& tables = out[element.className];
        for( const GAttributeRow& row : element.getAttributes( ) ) tables.attributes.insert( narrow( row.name ) );
        for( const GNameRow& row : element.getNames( ) ) tables.names.insert( narrow( row.name ) );
    }
    return out;
}

std::string join( const Names& names )
{
    std::string out;
    for( const std::string& name : names ) out += name + " ";
    return out;
}

Names minus( Names from, const Names& what )
{
    for( const std::string& name : what ) from.erase( name );
    return from;
}

Names engineNames( )
{
    Names out{ "g_event" };
    for( const GNameRow& row : GTemplate::getNameTable( ) ) out.insert( narrow( row.name ) );
    return out;
}

class GSkinTable : public testing::Test
{
protected:
    GSkinTable( )
    {
        for( const auto& [name, tables] : classes ) names.insert( name );
    }
    const std::map<std::string, ClassTables> classes = tablesByClass( );
    Names names;
};
} // namespace

TEST_F( GSkinTable, HoldsWhatEveryNodeReadsAndNoMore )
{
    const Helpers helpers( names );
    for( const auto& [name, tables] : classes )
    {
        const std::string text = sourcesOf( name );
        Names reads = readsOf( text );
        Names seen;
        helpers.addTo( text, reads, seen );
        EXPECT_EQ( join( minus( minus( reads, engineNames( ) ), tables.attributes ) ), "" )
            << name << " reads them, and they are not in its table";
        EXPECT_EQ( join( minus( tables.attributes, reads ) ), "" )
            << "in the table of " << name << ", which never reads them";
    }
}

TEST_F( GSkinTable, HoldsWhatEveryNodeSets )
{
    for( const auto& [name, tables] : classes )
    {
        const Names sets = setsOf( sourcesOf( name ) );
        EXPECT_EQ( join( minus( minus( sets, engineNames( ) ), tables.names ) ), "" )
            << name << " sets them, and they are not in its table";
        EXPECT_EQ( join( minus( tables.names, sets ) ), "" ) << "in the table of " << name << ", which never sets them";
    }
    const Names sets = setsOf( load( VELMORA_SOURCE_DIR "/client/skin/GTemplate.cpp" ) );
    for( const std::string& name : sets ) EXPECT_TRUE( engineNames( ).contains( name ) ) << name;
}

TEST_F( GSkinTable, FindsWhatHelpersReadForTheNodes )
{
    Names reads;
    Names seen;
    Helpers( names ).addTo( "GNodeField _field; GNodeTools_readAlign( stack, _flags );", reads, seen );
    EXPECT_EQ( join( reads ), "align focuscolor framecolor inner outer valign " );
}

TEST_F( GSkinTable, EveryRowSaysWhatItIsFor )
{
    for( const GElementRow& element : GTemplateFactory::getElements( ) )
    {
        EXPECT_FALSE( element.meaning.empty( ) ) << narrow( element.name );
        Names seen;
        for( const GAttributeRow& row : element.getAttributes( ) )
        {
            EXPECT_EQ( narrow( row.name ), lower( narrow( row.name ) ) );
            EXPECT_TRUE( seen.insert( narrow( row.name ) ).second ) << narrow( row.name ) << " stands there twice";
            EXPECT_TRUE( row.meaning.ends_with( u'.' ) ) << narrow( element.name ) << " " << narrow( row.name );
        }
    }
}

TEST( GActionTable, HoldsTheArgumentsThatCommandsRead )
{
    Names listed;
    for( const GActionFamily& family : GTemplate::getActions( ) )
    {
        EXPECT_FALSE( family.actions.empty( ) ) << narrow( family.path );
        for( const GActionRow& row : family.actions )
        {
            EXPECT_TRUE( row.meaning.ends_with( u'.' ) ) << narrow( row.action );
            for( const GWString& argument : GSplitList( GWString( row.arguments ) ) )
                listed.insert( narrow( argument ) );
        }
    }
    Names read;
    for( const auto& entry : std::filesystem::directory_iterator( COMMANDS ) )
        collect( load( entry.path( ) ), R"re(command\.(?:get|calc)\( u"(\w+)")re", read );
    EXPECT_EQ( join( minus( read, listed ) ), "" ) << "read, and not in a table";
    EXPECT_EQ( join( minus( listed, read ) ), "" ) << "in a table, and never read";
}

TEST( GSkinValues, AreAllKnownToTheClient )
{
    std::string sources;
    for( const char* folder : { "/client", "/libvorn" } )
        for( const auto& entry :
             std::filesystem::recursive_directory_iterator( std::string( VELMORA_SOURCE_DIR ) + folder ) )
            if( entry.path( ).extension( ) == ".cpp" || entry.path( ).extension( ) == ".h" )
                if( entry.path( ).stem( ) != "GSkinValues" ) sources += load( entry.path( ) );
    for( const GValueGroup& group : GSkinValuesGet( ) )
    {
        for( const GValueRow& row : group.rows )
        {
            const GWStringView fixed =
                row.name.starts_with( u"NAME" ) ? row.name.substr( row.name.find( u'_' ) ) : row.name;
            EXPECT_NE( sources.find( narrow( fixed ) + "\"" ), std::string::npos ) << narrow( row.name );
            EXPECT_TRUE( row.meaning.ends_with( u'.' ) ) << narrow( row.name );
        }
    }
}

TEST( GSkinValues, KnowABuddysValueByItsEnd )
{
    EXPECT_TRUE( GSkinValuesContain( u"client_status" ) );
    EXPECT_TRUE( GSkinValuesContain( u"ada@example.org_Online" ) );
    EXPECT_TRUE( GSkinValuesContain( u"ada@example.org@desk_Ping" ) );
    EXPECT_FALSE( GSkinValuesContain( u"Old_Client_Status" ) );
    EXPECT_FALSE( GSkinValuesContain( u"Online" ) );
    EXPECT_FALSE( GSkinValuesContain( u"" ) );
}

// What the client says of a log-on is shown in the skin's own words, case by case.
TEST( ShippedSkin, HasWordsForEveryOutcomeOfALogon )
{
    Names outcomes;
    for( const char* source : { "/client/app/GClient_Logon.cpp", "/client/skin/commands/GAccountCommands.cpp" } )
        collect( load( VELMORA_SOURCE_DIR + std::string( source ) ), R"re(u"(-- [^"]+ --)")re", outcomes );
    EXPECT_GE( outcomes.size( ), 13u );
    const std::string skin = lower( load( VELMORA_SOURCE_DIR "/skin/template.xml" ) );
    for( const std::string& outcome : outcomes )
        EXPECT_NE( skin.find( "equals=\"" + outcome + "\"" ), std::string::npos ) << outcome;
}
