#include "support/os/thread.h"

#include "support/os/clock.h"

namespace Tarnlo::os {
namespace {

constexpr std::uint32_t kLookMs = 1;
// Nobody holds a lock for longer than it takes to stop a task.
constexpr std::uint32_t kLongestHoldMs = 30'000;

}  // namespace

bool Thread::AwaitNoLocks() const {
  const std::uint32_t begin = TickMs();
  while (!m_held->Doom() && TickMs() - begin < kLongestHoldMs) {
    if (WaitForEnd(kLookMs)) return false;
  }
  return true;
}

}  // namespace Tarnlo::os
