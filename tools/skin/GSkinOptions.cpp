#include "GSkinOptions.h"

#include "base/GUtil.h"

#include <cstdio>
#include <cstdlib>

namespace
{
using Values = const char* const*;

// In the order of the usage.
struct Row
{
    const char* name;
    int count; // Of values.
    bool isAction;
    const char* values;
    const char* meaning;
    void ( *read )( GSkinOptions& options, Values values );
};

GWString wide( const char* text )
{
    return GUTF8ToWide( text );
}

constexpr Row ROWS[] = {
    { "--check", 0, true, "", "report what is wrong with the template", nullptr },
    { "--list", 0, true, "", "name its windows", nullptr },
    { "--reference", 0, true, "", "print the reference part of the manual", nullptr },
    { "--render", 2, true, "WINDOW OUT.png", "draw a window, e.g. window_login",
      []( GSkinOptions& o, Values v ) { o.window = wide( v[0] ), o.out = v[1]; } },
    { "--show", 1, true, "WINDOW", "open a window on the desktop, and again when the file changes",
      []( GSkinOptions& o, Values v ) { o.window = wide( v[0] ); } },
    { "--places", 1, true, "WINDOW", "tell where its parts take the pointer: x, y, width, height, path, attributes",
      []( GSkinOptions& o, Values v ) { o.window = wide( v[0] ); } },
    { "--dir", 1, false, "DIRECTORY", "where the skin is (default: here)",
      []( GSkinOptions& o, Values v ) { o.directory = v[0]; } },
    { "--template", 1, false, "FILE", "default template.xml",
      []( GSkinOptions& o, Values v ) { o.file = wide( v[0] ); } },
    { "--palette", 1, false, "dusk|paper", "paper takes template-paper.xml",
      []( GSkinOptions& o, Values v ) { o.palette = v[0]; } },
    { "--scale", 1, false, "1|1.5|2", "takes template@1.5x.xml or template@2x.xml",
      []( GSkinOptions& o, Values v ) { o.scale = v[0]; } },
    { "--sample", 1, false, "NAME",
      "the day to show: day, empty, one, forty, long, rtl, error, offline, ringing, calling, talking",
      []( GSkinOptions& o, Values v ) { o.sample = v[0]; } },
    { "--buddies", 1, false, "COUNT", "on the sample's list",
      []( GSkinOptions& o, Values v ) { o.buddies = std::atoi( v[0] ); } },
    { "--empty", 0, false, "", "no sample data at all", []( GSkinOptions& o, Values ) { o.empty = true; } },
    { "--data", 1, false, "FILE", "lines 'name: value' for the blackboard, after the sample",
      []( GSkinOptions& o, Values v ) { o.dataFile = v[0]; } },
    { "--set", 1, false, "NAME=VALUE", "a value on the blackboard, after both",
      []( GSkinOptions& o, Values v ) { o.settings.emplace_back( v[0] ); } },
    { "--size", 1, false, "WxH", "sizes the window before it is drawn",
      []( GSkinOptions& o, Values v ) { std::sscanf( v[0], "%dx%d", &o.width, &o.height ); } },
    { "--page", 1, false, "TARGET", "turns the window's first wizard there",
      []( GSkinOptions& o, Values v ) { o.page = wide( v[0] ); } },
    { "--hover", 1, false, "PLACE",
      "puts the pointer on the first part whose path or name=value holds the text, or on x,y",
      []( GSkinOptions& o, Values v ) { o.hover = v[0]; } },
    { "--press", 1, false, "PLACE", "holds the button down there",
      []( GSkinOptions& o, Values v ) { o.press = v[0]; } },
    { "--click", 1, false, "PLACE", "clicks there first", []( GSkinOptions& o, Values v ) { o.click = v[0]; } },
    { "--focus", 1, false, "PLACE", "moves the keyboard there by the tab key",
      []( GSkinOptions& o, Values v ) { o.focus = v[0]; } },
    { "--type", 1, false, "TEXT", "types it there", []( GSkinOptions& o, Values v ) { o.typed = wide( v[0] ); } },
    { "--background", 1, false, "#RRGGBB", "what shines through, default #8A93A0",
      []( GSkinOptions& o, Values v ) { o.background = v[0]; } },
};

const Row* find( const GString& name )
{
    for( const Row& row : ROWS )
        if( name == row.name ) return &row;
    return nullptr;
}

GString fail( const GString& text )
{
    std::fprintf( stderr, "%s\n", text.c_str( ) );
    return { };
}

// "template[-paper][@2x].xml", unless a file was named.
GWString getFile( const GSkinOptions& options )
{
    if( options.file != u"template.xml" ) return options.file;
    GString name = "template";
    if( options.palette == "paper" || options.palette == "Paper" ) name += "-paper";
    if( !options.scale.empty( ) && options.scale != "1" ) name += "@" + options.scale + "x";
    return GUTF8ToWide( name + ".xml" );
}
} // namespace

GSkinOptions GSkinOptionsRead( int argc, char** argv )
{
    GSkinOptions options;
    for( int i = 1; i < argc; )
    {
        const GString name = argv[i++];
        const Row* row = find( name );
        if( !row || argc - i < row->count )
        {
            options.action = fail( row ? name + " needs " + row->values : "unknown option " + name );
            return options;
        }
        if( row->isAction ) options.action = name;
        if( row->read ) row->read( options, argv + i );
        i += row->count;
    }
    options.file = getFile( options );
    return options;
}

GString GSkinOptionsUsage( )
{
    GString out;
    for( const Row& row : ROWS )
    {
        GString line = ( row.isAction ? "velmora-skin " : "  " ) + GString( row.name ) + " " + row.values;
        line.resize( std::max<size_t>( line.size( ), 42 ), ' ' );
        out += line + " " + row.meaning + "\n";
    }
    return out;
}
