// The expression grammar: expands names in a text. A text is parsed once into a list of parts, literals and names, whose values one
// after the other are the text's value; partial matches leave what the newest complete element pushed.
// Plain values, one thread.
#pragma once

#include "base/GTypes.h"

struct GExpressionPart
{
    bool isName = false;
    // The literal, or the lower-cased name.
    GWString text;
    // The name's number in a symbol table, -1 for none; kept for the owner of the table.
    int symbol = -1;
};
using GExpression = std::vector<GExpressionPart>;

class GEvaluator
{
public:
    // Texts that nest deeper than the parser may go are refused.
    static constexpr int MAX_NESTING = 512;

    // Parses as far as the grammar matches. False when the text nests too deep; an empty list is an empty value.
    bool parse( GWStringView text, GExpression& expression ) const;
};
