// Versions of program files, and whether one reaches another.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Tarnlo {

// "a.b.c.d" of the file's version resource; empty when it has none.
std::wstring GetFileVersionString(const std::wstring& path);

// The numbers between points; each as atoi reads it, the nearest there is beyond the range.
std::vector<int> ParseVersion(std::string_view text);

// Number by number over the first three, none of which may be missing: 2.0.5 does not reach 1.9.0.
bool VersionReaches(const std::vector<int>& existing, const std::vector<int>& required);

// Whether the file is up to date. False when nothing is required.
bool CompareFileVersion(const std::wstring& path, const std::wstring& required);

}  // namespace Tarnlo
