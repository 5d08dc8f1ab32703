#include "GSkinReference.h"

#include "base/GUtil.h"
#include "client/skin/GSkinValues.h"
#include "client/skin/GTemplate.h"
#include "client/skin/GTemplateFactory.h"

#include <algorithm>

namespace
{
// Elements of which docs/pictures/skin has a picture.
constexpr GWStringView PICTURED[] = { u"Border", u"Row",    u"Foreach", u"Button",   u"BuddyList", u"Edit", u"Gradient",
                                      u"Image",  u"Hotkey", u"List",    u"Progress", u"Table",     u"Text", u"Wizard" };

struct KindName
{
    GAttributeKind kind;
    GWStringView name;
};
constexpr KindName KINDS[] = {
    { GAttributeKind::number, u"number" },
    { GAttributeKind::toggle, u"on or off" },
    { GAttributeKind::text, u"text" },
    { GAttributeKind::choice, u"choice" },
    { GAttributeKind::font, u"font" },
    { GAttributeKind::colour, u"colour" },
    { GAttributeKind::image, u"picture" },
    { GAttributeKind::command, u"command" },
    { GAttributeKind::valueName, u"name of a value" },
    { GAttributeKind::listText, u"list" },
    { GAttributeKind::path, u"path" },
};

GWStringView getKindName( GAttributeKind kind )
{
    return std::ranges::find( KINDS, kind, &KindName::kind )->name;
}

GWString code( GWStringView text )
{
    return text.empty( ) ? GWString( ) : GConcat( u"`", text, u"`" );
}

// A default as the author reads it.
GWString getStandard( GWStringView standard )
{
    if( !standard.starts_with( u'$' ) ) return standard == u"off" ? GWString( standard ) : code( standard );
    return GConcat( u"that of ", code( standard.substr( 1 ) ) );
}

void addAttributes( GAttributeTable table, GWString& out )
{
    if( table.empty( ) ) return;
    out += u"| Attribute | Takes | Without it | |\n| --- | --- | --- | --- |\n";
    for( const GAttributeRow& row : table )
        out += GConcat( u"| `", row.name, u"` | ", getKindName( row.kind ), u" | ", getStandard( row.standard ), u" | ",
                        row.meaning, u" |\n" );
    out += u"\n";
}

void addNames( GNameTable names, GWStringView title, GWString& out )
{
    if( names.empty( ) ) return;
    out += GConcat( title, u"\n\n" );
    for( const GNameRow& row : names ) out += GConcat( u"- `$", row.name, u"`: ", row.meaning, u"\n" );
    out += u"\n";
}

// Elements that are alike but for their names stand under one heading.
bool isLike( const GElementRow& one, const GElementRow& other )
{
    return one.meaning == other.meaning && one.getAttributes( ).data( ) == other.getAttributes( ).data( );
}

void addElements( GWString& out )
{
    out += u"## Elements\n\n";
    const auto elements = GTemplateFactory::getElements( );
    for( size_t i = 0; i < elements.size( ); )
    {
        const GElementRow& first = elements[i];
        GWString names;
        for( ; i < elements.size( ) && isLike( first, elements[i] ); ++i )
            names += ( names.empty( ) ? u"" : u", " ) +
                     GWString( elements[i].name.empty( ) ? u"Any other name" : elements[i].name );
        out += GConcat( u"### ", names, u"\n\n", first.meaning, u"\n\n" );
        if( std::ranges::find( PICTURED, first.name ) != std::end( PICTURED ) )
            out += GConcat( u"![", first.name, u"](pictures/skin/", GToLower( first.name ), u".png)\n\n" );
        addAttributes( first.getAttributes( ), out );
        addNames( first.getNames( ), u"What stands in it sees:", out );
    }
}

void addCommands( GWString& out )
{
    out += u"## Commands\n\n";
    for( const GActionFamily& family : GTemplate::getActions( ) )
    {
        out += GConcat( u"### ", family.path, u"\n\n", family.meaning,
                        u"\n\n| Action | Arguments | |\n| --- | --- | --- |\n" );
        for( const GActionRow& row : family.actions )
        {
            GWString arguments;
            for( const GWString& argument : GSplitList( row.arguments ) )
                arguments += ( arguments.empty( ) ? u"" : u" " ) + code( argument );
            out += GConcat( u"| `", row.action, u"` | ", arguments, u" | ", row.meaning, u" |\n" );
        }
        out += u"\n";
    }
}

void addValues( GWString& out )
{
    out += u"## Values on the blackboard\n\nNames ignore case. A skin may use values of its own beside these. Those "
           u"marked * are "
           u"written by the skin, by a field or a list.\n\n";
    for( const GValueGroup& group : GSkinValuesGet( ) )
    {
        out += GConcat( u"### ", group.title, u"\n\n| Value | |\n| --- | --- |\n" );
        for( const GValueRow& row : group.rows )
            out += GConcat( u"| `", row.name, u"`", row.use == GValueUse::written ? u" *" : u"", u" | ", row.meaning,
                            u" |\n" );
        out += u"\n";
    }
}
} // namespace

GString GSkinReferenceMake( )
{
    GWString out;
    addElements( out );
    addNames( GTemplate::getNameTable( ), u"## Names that every element sees", out );
    addCommands( out );
    addValues( out );
    out.pop_back( );
    return GWideToUTF8( out );
}
