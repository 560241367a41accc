#include "tests/native/kernel_mutex_object.h"

#include <chrono>

#include "support/os/wait.h"
#include "tests/native/unfrozen.h"

namespace Tarnlo::os::native {

void HeldMutexes::Add(MutexObject& held) {
  const SeamGuard guard(m_mutex);
  m_held.insert(&held);
}

void HeldMutexes::Remove(MutexObject& held) {
  const SeamGuard guard(m_mutex);
  m_held.erase(&held);
}

void HeldMutexes::AbandonAll() {
  std::set<MutexObject*> held;
  {
    const SeamGuard guard(m_mutex);
    held.swap(m_held);
  }
  for (MutexObject* mutex : held) mutex->Abandon();
}

bool MutexObject::Acquire(std::uint32_t milliseconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
  // In slices, between which the thread can be frozen.
  constexpr std::chrono::milliseconds kSlice{10};
  for (;;) {
    const Clock::time_point slice_end = Clock::now() + kSlice;
    const bool is_last = milliseconds != kForever && slice_end >= end;
    if (AcquireBy(is_last ? end : slice_end)) return true;
    if (is_last) return false;
  }
}

bool MutexObject::AcquireBy(std::chrono::steady_clock::time_point end) {
  HeldMutexes& own = HeldByThisThread();
  const Unfrozen unfrozen;
  std::unique_lock lock(m_mutex);
  const auto free = [&] { return m_holder == nullptr || m_holder == &own; };
  if (!m_changed.wait_until(lock, end, free)) return false;
  m_holder = &own;
  if (++m_depth == 1) own.Add(*this);
  return true;
}

void MutexObject::Release() {
  HeldMutexes& own = HeldByThisThread();
  const SeamGuard guard(m_mutex);
  if (m_holder != &own || --m_depth > 0) return;
  own.Remove(*this);
  m_holder = nullptr;
  m_changed.notify_one();
}

void MutexObject::Abandon() {
  const SeamGuard guard(m_mutex);
  m_holder = nullptr;
  m_depth = 0;
  m_changed.notify_one();
}

}  // namespace Tarnlo::os::native
