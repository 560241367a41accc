// Waiting for the first of several events and threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace Tarnlo::os {

inline constexpr std::uint32_t kForever = 0xFFFFFFFF;

// What an event or a thread lends to a wait. Does not own; the lender must outlive the wait.
struct Waitable {
  void* native = nullptr;
  friend bool operator==(const Waitable&, const Waitable&) = default;
};

// At most 64 objects. The index of the first one that is signalled (the lowest when several are),
// or nothing when `milliseconds` have passed or the wait could not be made.
std::optional<std::size_t> WaitForAny(std::span<const Waitable> objects,
                                      std::uint32_t milliseconds);

}  // namespace Tarnlo::os
