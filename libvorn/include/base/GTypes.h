// The text and rectangle types that every other header assumes.
// Narrow strings hold bytes or UTF-8, wide strings hold UTF-16 code units; text on disk and on the wire is UTF-8.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <vector>

using GString = std::string;
using GWString = std::u16string;
using GWStringView = std::u16string_view;
using GStringList = std::list<GWString>;
using GStringVector = std::vector<GWString>;
