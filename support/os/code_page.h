// Text in the system's code pages.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Tarnlo::os {

enum CodePage : unsigned {
  kAnsi = 0,        // the system's
  kThreadAnsi = 3,  // the calling thread's
  kUtf8 = 65001,
};

// Nothing when it cannot be converted or needs more than `max_bytes`. Empty text gives nothing too:
// the system's converter takes it for a failure.
std::optional<std::string> WideToCodePage(std::wstring_view text, unsigned code_page,
                                          std::size_t max_bytes = 0x7FFFFFFF);

// Empty when it cannot be converted.
std::wstring CodePageToWide(std::string_view bytes, unsigned code_page);

}  // namespace Tarnlo::os
