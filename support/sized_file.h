// Laying a file out at its final size.
#pragma once

#include <cstdint>
#include <string>

namespace Tarnlo {

enum class SizedFileResult { kDone = 0, kNotCreated = 1, kNotExtended = 2, kNoName = 3 };

// Replaces the file by a new one of `size` bytes, empty when `size` is below 1. What a failure
// leaves is no file, or the old one when that could not be removed.
SizedFileResult CreateSizedFile(const std::wstring& path, std::int64_t size);

}  // namespace Tarnlo
