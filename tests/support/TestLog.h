// Collects log lines during a test. A line holding "WARNING" or "ERROR" must have been announced with TestLog::expect before the
// test ends, or the test fails.
#pragma once

#include "base/GTypes.h"

namespace TestLog
{
// Takes over the log hook and registers the check at each test's end.
void install( );
// Announces that at least one line holding `text` will come; fails the test when none did.
void expect( const std::string& text );
// Announces lines that may or may not come.
void allow( const std::string& text );
// All lines of this test so far, as UTF-8, without forgetting them.
std::vector<std::string> lines( );
bool contains( const std::string& text );
int count( const std::string& text );
void clear( );
} // namespace TestLog
