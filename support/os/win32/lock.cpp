#include "support/os/lock.h"

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
  AcquireSRWLockExclusive(Native(m_state));
}
void Lock::Release() {
  ReleaseSRWLockExclusive(Native(m_state));
}
void Lock::AcquireShared() {
  AcquireSRWLockShared(Native(m_state));
}
void Lock::ReleaseShared() {
  ReleaseSRWLockShared(Native(m_state));
}
bool Lock::TryAcquireShared() {
  return TryAcquireSRWLockShared(Native(m_state)) != 0;
}

KernelMutex::KernelMutex() : m_handle(CreateMutexW(nullptr, FALSE, nullptr)) {}

bool KernelMutex::Acquire(std::uint32_t milliseconds) {
  const DWORD answer = WaitForSingleObject(m_handle.get(), milliseconds);
  return answer == WAIT_OBJECT_0 || answer == WAIT_ABANDONED;
}

void KernelMutex::Release() {
  ReleaseMutex(m_handle.get());
}

}  // namespace Tarnlo::os
