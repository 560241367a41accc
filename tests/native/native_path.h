// Windows paths on a Linux file system.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Tarnlo::os::native {

// "Z:\a\b" and "Z:/a/b" are "/a/b"; "C:\a" is in a folder of this process's own. Relative paths
// stay relative, and "/a" is taken as it is. Empty for what no file can be named: a drive that is
// missing, a forbidden character.
std::filesystem::path NativePath(std::wstring_view path);

// "/a/b" as "Z:\a\b".
std::wstring WindowsPath(const std::filesystem::path& path);

// From TMPDIR, TMP or TEMP, as std::filesystem has it, but never failing.
std::filesystem::path NativeTempFolder();

}  // namespace Tarnlo::os::native
