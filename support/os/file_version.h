// The version resource of a program file.
#pragma once

#include <array>
#include <optional>
#include <string>

namespace Tarnlo::os {

// The four numbers of the fixed file information; nothing when the file has none.
std::optional<std::array<int, 4>> ReadFileVersion(const std::wstring& path);

}  // namespace Tarnlo::os
