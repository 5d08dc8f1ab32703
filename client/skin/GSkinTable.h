// The rows in which the skin engine writes down what it knows by name. Each class keeps the table of what it reads in its own source;
// the engine's lists of elements, commands and values are made of them, and the check of skins and the manual read nothing else.
#pragma once

#include "base/GTypes.h"

#include <algorithm>
#include <array>
#include <span>

// What the text of an attribute, once evaluated, is taken for.
enum class GAttributeKind
{
    number,
    toggle, // On for "true" and any number but 0.
    text,
    choice, // One of the texts that the meaning tells.
    font,
    colour,
    image,     // The name of a blackboard image or a file, with an optional part.
    command,   // Items in parentheses.
    valueName, // The name of a blackboard value.
    listText,  // Entries with commas between.
    path,      // Of a node.
};

struct GAttributeRow
{
    GWStringView name; // In lower case.
    GAttributeKind kind;
    GWStringView standard; // What an empty text stands for; "$name" for what that attribute has.
    GWStringView meaning;
};
using GAttributeTable = std::span<const GAttributeRow>;

// One table of several: what elements have in common is written down once.
template <size_t... SIZES>
constexpr auto GAttributeRowsJoin( const GAttributeRow ( &... parts )[SIZES] )
{
    std::array<GAttributeRow, ( SIZES + ... )> all{ };
    auto at = all.begin( );
    ( ( at = std::copy_n( parts, SIZES, at ) ), ... );
    return all;
}

// What every control that has a hint reads.
constexpr GAttributeRow GHINT_ATTRIBUTES[] = {
    { u"hint", GAttributeKind::text, u"", u"What a small window says once the pointer rests here." },
};

// A name that the engine sets for what stands inside.
struct GNameRow
{
    GWStringView name;
    GWStringView meaning;
};
using GNameTable = std::span<const GNameRow>;

// One action of the command language.
struct GActionRow
{
    GWStringView action;
    GWStringView arguments; // Names with commas between.
    GWStringView meaning;
};

// The actions that one path understands.
struct GActionFamily
{
    GWStringView path; // "NAME" stands for what the skin puts there.
    GWStringView meaning;
    std::vector<GActionRow> actions;
};
