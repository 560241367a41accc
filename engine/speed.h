// The speed that is reported.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

namespace Tarnlo {

// Bytes per whole millisecond, times 1,000: coarse on purpose. 0 while no millisecond has passed.
constexpr std::uint32_t BytesPerSecond(std::int64_t bytes, std::uint32_t milliseconds) {
  if (milliseconds == 0) return 0;
  const std::int64_t per_millisecond = bytes / static_cast<std::int64_t>(milliseconds);
  constexpr std::int64_t kMost = std::numeric_limits<std::uint32_t>::max() / 1000;
  return static_cast<std::uint32_t>(std::clamp<std::int64_t>(per_millisecond, 0, kMost) * 1000);
}

}  // namespace Tarnlo
