// The values on the blackboard that skins show and write: the client's side of the bargain, as one table.
#pragma once

#include "base/GTypes.h"

#include <span>

enum class GValueUse
{
    shown,   // The client keeps it up to date.
    written, // The skin writes it, by a field or a list, and the client reads it.
};

struct GValueRow
{
    // "NAME" stands for a buddy's id, "DEVICE" for one of his devices.
    GWStringView name;
    GValueUse use;
    GWStringView meaning;
};

struct GValueGroup
{
    GWStringView title;
    std::span<const GValueRow> rows;
};

std::span<const GValueGroup> GSkinValuesGet( );
// Whether the table has that name: a buddy's value is known by its end. Ignores case.
bool GSkinValuesContain( GWStringView name );
// Whether it is one of those that there are once, by its whole name. Ignores case.
bool GSkinValuesIsWhole( GWStringView name );
