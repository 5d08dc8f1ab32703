// A parsed command line: option names, lower-cased, and their values. Built once from the raw text and never changed.
// Tokens are cut at single blanks; "-name" opens an option whose value is the next plain token; other tokens are numbered from "0".
#pragma once

#include "base/GTypes.h"

#include <map>

class GCommandLine
{
public:
    explicit GCommandLine( const GString& text );

    bool contains( const GString& name ) const;
    // Writes `out` only when the option is present.
    bool get( const GString& name, GString& out ) const;
    // Empty when absent.
    GString get( const GString& name ) const;
    const GString& text( ) const { return _text; }
    // The text as it may be logged: values of options whose names end in "password" are masked.
    GString getLogText( ) const;

private:
    GString _text;
    std::map<GString, GString> _options;
};
