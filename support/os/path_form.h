// Paths made ready in advance for calls that must allocate nothing.
#pragma once

#include <cstddef>
#include <string>

namespace Tarnlo::os {

// The same path in the form in which the system's calls take it as it is, even with `extra` more
// characters behind it. An absolute path; any other is left alone.
std::wstring CallForm(const std::wstring& path, std::size_t extra);

}  // namespace Tarnlo::os
