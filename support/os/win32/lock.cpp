#include "support/os/lock.h"

#include "support/os/held_locks.h"
#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {
namespace {

static_assert(sizeof(SRWLOCK) == sizeof(void*));

// A pointer that is null is an initialised lock (SRWLOCK_INIT); only the system touches it.
SRWLOCK* Native(void*& state) {
  return reinterpret_cast<SRWLOCK*>(&state);
}

}  // namespace

void Lock::Acquire() {
  HeldLocks::Enter();
  AcquireSRWLockExclusive(Native(m_state));
}
void Lock::Release() {
  ReleaseSRWLockExclusive(Native(m_state));
  HeldLocks::Leave();
}
void Lock::AcquireShared() {
  HeldLocks::Enter();
  AcquireSRWLockShared(Native(m_state));
}
void Lock::ReleaseShared() {
  ReleaseSRWLockShared(Native(m_state));
  HeldLocks::Leave();
}
bool Lock::TryAcquireShared() {
  HeldLocks::Enter();
  const bool acquired = TryAcquireSRWLockShared(Native(m_state)) != 0;
  if (!acquired) HeldLocks::Leave();
  return acquired;
}

KernelMutex::KernelMutex() : m_handle(CreateMutexW(nullptr, FALSE, nullptr)) {}

bool KernelMutex::Acquire(std::uint32_t milliseconds) {
  const DWORD answer = WaitForSingleObject(m_handle.get(), milliseconds);
  if (answer != WAIT_OBJECT_0 && answer != WAIT_ABANDONED) return false;
  HeldLocks::Enter();  // not before: the next one gets it from a thread that is ended here
  return true;
}

void KernelMutex::Release() {
  ReleaseMutex(m_handle.get());
  HeldLocks::Leave();
}

}  // namespace Tarnlo::os
