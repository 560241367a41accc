#include "support/os/thread.h"

#include "support/os/clock.h"

namespace Tarnlo::os {
namespace {

constexpr std::uint32_t kLookMs = 1;
constexpr std::uint32_t kGraceMs = 1000;
// Nobody holds a lock for longer than it takes to stop a task.
constexpr std::uint32_t kLongestHoldMs = 30'000;

}  // namespace

bool Thread::AwaitNoLocks() const {
  const std::uint32_t begin = TickMs();
  while (m_held->Any() || !m_held->Doom()) {
    const std::uint32_t waited = TickMs() - begin;
    if (waited >= kLongestHoldMs) break;
    if (WaitForEnd(kLookMs)) return false;
    // What it was busy with is over: it may well come to its end now.
    if (!m_held->Any() && WaitForEnd(kGraceMs)) return false;
  }
  return true;
}

}  // namespace Tarnlo::os
