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

struct WaitAnswer {
  // The index of the object that is signalled, the lowest when several are; nothing when none was.
  std::optional<std::size_t> signalled;
  bool failed = false;  // the wait could not be made
};

// At most 64 objects, for at most so many milliseconds.
WaitAnswer WaitForAny(std::span<const Waitable> objects, std::uint32_t milliseconds);

}  // namespace Tarnlo::os
