// Names as the client shows them, and command texts that several of its pages use.
#pragma once

#include "base/GTypes.h"

inline constexpr char16_t GCLIENT_SHOW_TRANSFERS[] =
    u"(/skin/window_options/copy/border/inside/wizard?jump+target=file;/skin/window_options?open)";

// What stands before the first "@".
GWString GClientGetUserName( const GWString& userGUID );
// The last step of a path, by both separators, printable and without leading dots: what a stranger may name a file. Never empty.
GWString GClientGetBaseName( const GWString& path );
// Hosts and addresses that a server names: empty, after a warning, when there is anything in them that has a meaning to the skin or
// to no address.
GWString GClientCleanAddress( const GWString& text );
