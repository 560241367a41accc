// Where the user's temporary files go.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace Tarnlo::os {

// The path with its closing backslash, as the system gives it. Nothing when the system does not
// tell, or when the path does not fit `capacity` characters with its terminator.
std::optional<std::wstring> TempFolder(std::size_t capacity);

}  // namespace Tarnlo::os
