// A pass over a tree in which nothing changed: every kind of node says so, and none of them allocates.
#include "NodeTest.h"
#include "support/CountAllocations.h"

class UnchangedPassTest : public NodeTest
{
protected:
    static Element everything( )
    {
        const GWString font = u"13,,#E8ECF1FF,DejaVu Sans";
        const Element page{
            u"page", { { u"id", u"a" }, { u"title", u"A rather long title" }, { u"text", u"and a long text" } }, {} };
        const std::vector<Element> widgets = {
            { u"Image", { { u"src", u"some_long_picture_name(0,0,4,4)" }, { u"align", u"center" } }, {} },
            { u"Button",
              { { u"text", u"A long caption" }, { u"font", font }, { u"command", u"(/skin/window_login?open)" } },
              {} },
            { u"Edit", { { u"var", u"Long_Variable_Name" }, { u"font", font } }, {} },
            { u"Hotkey", { { u"var", u"Long_Variable_Name" }, { u"font", font }, { u"refresh", u"true" } }, {} },
            { u"List",
              { { u"listname", u"Long_List_Name" }, { u"varname", u"Long_Variable_Name" }, { u"font", font } },
              {} },
            { u"Table",
              { { u"prefixlistsrc", u"Long_List_Name" }, { u"suffixlist", u"_Name, _Size" }, { u"title", u"a,b" } },
              {} },
            { u"List",
              { { u"list", u"first_item_of_list, second_item_of_list" },
                { u"labels", u"a label of some length, another of such" },
                { u"selectedbgcolor", u"#112233FF" },
                { u"marksrc", u"some_long_picture_name(0,0,4,4)" },
                { u"padding", u"12" },
                { u"thumbcolor", u"#112233FF" } },
              {} },
            { u"Table",
              { { u"prefixlistsrc", u"Long_List_Name, Other_Long_List_Name" },
                { u"groups", u"a heading of some length, another" },
                { u"varname", u"Another_Variable_Name" },
                { u"columns", u"3, 1" },
                { u"barsuffix", u"_Long_Suffix_Of_Done" },
                { u"suffixlist", u"_Name, _Long_Suffix_Of_Done" } },
              {} },
            { u"ScrollBar", { { u"name", u"vscrollfrac" }, { u"watch", u"Long_List_Name" } }, {} },
            { u"Text",
              { { u"text", u"$Long_Variable_Name" }, { u"watch", u"Long_Variable_Name" }, { u"font", font } },
              {} },
            { u"Gradient", { { u"from", u"#112233FF" } }, {} },
            { u"Progress", { { u"src", u"Long_Variable_Name" }, { u"scale", u"10" } }, {} },
            { u"Input", { { u"edge", u"bottomright" } }, {} },
            { u"if", { { u"watch", u"Long_Variable_Name" }, { u"equals", u"a value of some length" } }, {} },
            { u"on", { { u"event", u"a value of some length" } }, {} },
            { u"Wizard", { }, { page } },
            { u"Foreach", { { u"list", u"Long_List_Name" }, { u"as", u"id" } }, { { u"Input", { }, {} } } },
            { u"Border", { { u"aspect", u"inside" } }, { { u"inside", { }, {} } } } };
        const Element row{ u"Row", { }, { { u"Cell", { { u"extra", u"1" }, { u"align", u"stretch" } }, widgets } } };
        return {
            u"Window", { { u"id", u"all" }, { u"width", u"20" }, { u"height", u"20" }, { u"hidden", u"1" } }, { row } };
    }
};

TEST_F( UnchangedPassTest, ReportsNoChangeAndAllocatesNothing )
{
    instance->set( u"Long_Variable_Name", u"a value of some length" );
    instance->set( u"Long_List_Name", u"first_item_of_list, second_item_of_list" );
    load( everything( ) );
    for( int i = 0; i < 4; ++i ) update( );
    bool changed = true;
    EXPECT_EQ( countAllocations( [&] { changed = update( ); } ), 0 );
    EXPECT_FALSE( changed );
}
