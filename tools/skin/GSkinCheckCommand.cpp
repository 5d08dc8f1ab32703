#include "GSkinCheckCommand.h"

#include "base/GUtil.h"
#include "client/skin/GTemplate.h"
#include "client/skin/commands/GParseTools.h"

#include <algorithm>

namespace
{
constexpr GWStringView NODE = u"/skin/NODE";

const std::vector<GActionFamily>& getFamilies( )
{
    static const std::vector<GActionFamily> families = GTemplate::getActions( );
    return families;
}

bool isMadeAtRunTime( GWStringView text )
{
    return text.find_first_of( u"${" ) != GWStringView::npos;
}

// "/buddies/$buddy" is one of "/buddies/NAME".
bool isOf( const GActionFamily& family, const GWString& path )
{
    const GStringList steps = GSplitList( path, u"/" );
    const GStringList wanted = GSplitList( family.path, u"/" );
    if( steps.size( ) != wanted.size( ) ) return false;
    return std::equal( steps.begin( ), steps.end( ), wanted.begin( ),
                       []( const GWString& step, const GWString& want )
                       { return want == u"NAME" || isMadeAtRunTime( step ) || GCaseEquals( step, want ); } );
}

const GActionFamily* findFamily( const GWString& path )
{
    const bool isNode =
        path.empty( ) || path.starts_with( u".." ) || path.starts_with( u"/skin" ) || path.starts_with( u'$' );
    for( const GActionFamily& family : getFamilies( ) )
        if( isNode ? family.path == NODE : isOf( family, path ) ) return &family;
    return nullptr;
}

GWString suggestPath( const GWString& path )
{
    GStringVector known;
    for( const GActionFamily& family : getFamilies( ) ) known.emplace_back( family.path );
    return GSkinSuggest( path, known );
}

void checkArguments( const GCommandText& command, const GActionRow& row, const GSkinReport& report )
{
    const GStringList listed = GSplitList( row.arguments );
    const GStringVector known( listed.begin( ), listed.end( ) );
    for( const auto& [name, value] : command.args )
    {
        if( name.empty( ) || isMadeAtRunTime( name ) || GListContains( listed, name ) ) continue;
        report( GConcat( u"'", row.action, u"' has no argument '", name, u"'", GSkinSuggest( name, known ) ) );
    }
}

void checkAction( const GCommandText& command, const GActionFamily& family, const GSkinReport& report )
{
    const auto found = command.args.find( u"" );
    const GWString action = found == command.args.end( ) ? GWString( ) : found->second;
    if( isMadeAtRunTime( action ) ) return;
    if( action.empty( ) ) return report( GConcat( u"a command to '", command.path, u"' has no action" ) );
    GStringVector known;
    for( const GActionRow& row : family.actions )
    {
        if( GCaseEquals( row.action, action ) ) return checkArguments( command, row, report );
        known.emplace_back( row.action );
    }
    report( GConcat( u"'", family.path, u"' has no action '", action, u"'", GSkinSuggest( action, known ) ) );
}
} // namespace

void GSkinCheckCommand( const GWString& text, const GSkinReport& report, const GSkinReport& checkPath )
{
    std::vector<GMenuItem> items;
    GParseTools_parseMenu( items, text );
    for( const GMenuItem& item : items )
    {
        for( GWString piece : GSplitList( item.command ) )
        {
            // A whole command that is made at run time, or a path that begins with one.
            GWString prefix;
            if( isMadeAtRunTime( piece.substr( 0, 1 ) ) )
            {
                const size_t mark = piece.find( u'?' );
                if( mark == GWString::npos ) continue;
                prefix = piece.substr( 0, mark );
                piece.erase( 0, mark );
            }
            GCommandText command = GParseTools_parseCommand( piece );
            if( !prefix.empty( ) ) command.path = u"$" + prefix;
            if( command.path.starts_with( u"/skin/" ) ) checkPath( command.path );
            const GActionFamily* family = findFamily( command.path );
            if( family )
                checkAction( command, *family, report );
            else
                report( GConcat( u"no command has the path '", command.path, u"'", suggestPath( command.path ) ) );
        }
    }
}
