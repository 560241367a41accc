#include "tests/native/kernel_object.h"

#include <algorithm>
#include <chrono>
#include <memory>

#include "support/os/wait.h"

namespace Tarnlo::os::native {

void KernelObject::DropReference() {
  if (m_references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  const std::unique_ptr<KernelObject> last(this);
}

void Waiter::Wake() {
  const std::lock_guard guard(m_mutex);
  m_awake = true;
  m_changed.notify_one();
}

bool Waiter::Sleep(std::uint32_t milliseconds) {
  using Clock = std::chrono::steady_clock;
  // In slices, since a sanitizer delivers the signal that freezes a thread between two calls only.
  constexpr auto kSlice = std::chrono::milliseconds(100);
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
  std::unique_lock lock(m_mutex);
  while (!m_awake) {
    const Clock::time_point now = Clock::now();
    if (milliseconds != kForever && now >= end) return false;
    const Clock::time_point slice_end = now + kSlice;
    m_changed.wait_until(lock, milliseconds == kForever ? slice_end : std::min(end, slice_end));
  }
  return true;
}

void Signal::Set() {
  const std::lock_guard guard(m_mutex);
  m_set.store(true, std::memory_order_release);
  for (Waiter* waiter : m_waiters) waiter->Wake();
}

void Signal::Add(Waiter& waiter) {
  const std::lock_guard guard(m_mutex);
  m_waiters.push_back(&waiter);
  if (IsSet()) waiter.Wake();
}

void Signal::Remove(Waiter& waiter) {
  const std::lock_guard guard(m_mutex);
  m_waiters.erase(std::find(m_waiters.begin(), m_waiters.end(), &waiter));
}

}  // namespace Tarnlo::os::native
