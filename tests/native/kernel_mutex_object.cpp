#include "tests/native/kernel_mutex_object.h"

#include <chrono>

#include "support/os/wait.h"

namespace Tarnlo::os::native {

void HeldMutexes::Add(MutexObject& held) {
  const std::lock_guard guard(m_mutex);
  m_held.insert(&held);
}

void HeldMutexes::Remove(MutexObject& held) {
  const std::lock_guard guard(m_mutex);
  m_held.erase(&held);
}

void HeldMutexes::AbandonAll() {
  std::set<MutexObject*> held;
  {
    const std::lock_guard guard(m_mutex);
    held.swap(m_held);
  }
  for (MutexObject* mutex : held) mutex->Abandon();
}

bool MutexObject::Acquire(std::uint32_t milliseconds) {
  HeldMutexes& own = HeldByThisThread();
  std::unique_lock lock(m_mutex);
  const auto free = [&] { return m_holder == nullptr || m_holder == &own; };
  if (milliseconds == kForever) {
    m_changed.wait(lock, free);
  } else if (!m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds), free)) {
    return false;
  }
  m_holder = &own;
  if (++m_depth == 1) own.Add(*this);
  return true;
}

void MutexObject::Release() {
  HeldMutexes& own = HeldByThisThread();
  const std::lock_guard guard(m_mutex);
  if (m_holder != &own || --m_depth > 0) return;
  own.Remove(*this);
  m_holder = nullptr;
  m_changed.notify_one();
}

void MutexObject::Abandon() {
  const std::lock_guard guard(m_mutex);
  m_holder = nullptr;
  m_depth = 0;
  m_changed.notify_one();
}

}  // namespace Tarnlo::os::native
