#include "tests/native/kernel_object.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>

#include "support/os/wait.h"
#include "tests/native/unfrozen.h"

namespace Tarnlo::os::native {
namespace {

// The moment of the calendar's clock, which is the one that a semaphore takes.
timespec FromNow(std::chrono::nanoseconds time) {
  constexpr std::int64_t kSecond = 1'000'000'000;
  timespec moment{};
  clock_gettime(CLOCK_REALTIME, &moment);
  const std::int64_t nanoseconds = moment.tv_nsec + time.count();
  return {moment.tv_sec + nanoseconds / kSecond, nanoseconds % kSecond};
}

}  // namespace

void KernelObject::DropReference() {
  if (m_references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  const std::unique_ptr<KernelObject> last(this);
}

bool Waiter::Sleep(std::uint32_t milliseconds) {
  using Clock = std::chrono::steady_clock;
  // In slices, since a sanitizer delivers the signal that freezes a thread between two calls only.
  constexpr std::chrono::nanoseconds kSlice = std::chrono::milliseconds(100);
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    const std::chrono::nanoseconds left = end - Clock::now();
    if (milliseconds != kForever && left.count() <= 0) return sem_trywait(&m_awake) == 0;
    const timespec slice_end = FromNow(milliseconds == kForever ? kSlice : std::min(left, kSlice));
    if (sem_timedwait(&m_awake, &slice_end) == 0) return true;
  }
}

void Signal::Set() {
  const SeamGuard guard(m_mutex);
  m_set.store(true, std::memory_order_release);
  for (Waiter* waiter : m_waiters) waiter->Wake();
}

void Signal::Add(Waiter& waiter) {
  const SeamGuard guard(m_mutex);
  m_waiters.push_back(&waiter);
  if (IsSet()) waiter.Wake();
}

void Signal::Remove(Waiter& waiter) {
  const SeamGuard guard(m_mutex);
  m_waiters.erase(std::find(m_waiters.begin(), m_waiters.end(), &waiter));
}

}  // namespace Tarnlo::os::native
