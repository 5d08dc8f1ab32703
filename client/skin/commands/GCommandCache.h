// Command texts that were run before, parsed once: a text that comes again costs neither a parse nor memory. Bounded: what comes out
// of values may differ every time. Plain values, one thread.
#pragma once

#include "client/skin/GTextTable.h"
#include "client/skin/commands/GParseTools.h"

#include <memory>

// A menu string taken apart: the labels, and for each the commands behind it in order.
struct GParsedMenu
{
    GStringVector labels;
    std::vector<std::vector<GCommandText>> commands;

    // One item without a label runs without a menu.
    bool isPlain( ) const { return labels.size( ) == 1 && labels.front( ).empty( ); }
};

class GCommandCache
{
public:
    static constexpr size_t MAX_TEXTS = 1024;
    static constexpr size_t MAX_KEPT_LENGTH = 1024;
    // Held by whoever runs it: commands run others, and may make room for them here.
    using Menu = std::shared_ptr<const GParsedMenu>;

    // Never null; without labels when the text holds no command.
    Menu parse( GWStringView text );
    size_t size( ) const { return _menus.size( ); }

private:
    GWStringTable<Menu, 1024> _menus;
};
