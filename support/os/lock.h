// Locks and their guards.
#pragma once

#include <cstdint>

#include "support/compiler.h"
#include "support/os/handle.h"

namespace Tarnlo::os {

// A lock for short sections. Not recursive. Needs no initialisation and no destruction, so it may
// be a process-wide object of any age.
class CAPABILITY("mutex") Lock {
 public:
  constexpr Lock() = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void Acquire() ACQUIRE();
  void Release() RELEASE();
  void AcquireShared() ACQUIRE_SHARED();
  void ReleaseShared() RELEASE_SHARED();
  [[nodiscard]] bool TryAcquireShared() TRY_ACQUIRE_SHARED(true);

 private:
  void* m_state = nullptr;
};

class SCOPED_CAPABILITY LockGuard {
 public:
  explicit LockGuard(Lock& lock) ACQUIRE(lock) : m_lock(lock) { m_lock.Acquire(); }
  ~LockGuard() RELEASE() { m_lock.Release(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  Lock& m_lock;
};

// Several readers at once, no writer among them.
class SCOPED_CAPABILITY SharedGuard {
 public:
  explicit SharedGuard(Lock& lock) ACQUIRE_SHARED(lock) : m_lock(lock) { m_lock.AcquireShared(); }
  ~SharedGuard() RELEASE_GENERIC() { m_lock.ReleaseShared(); }
  SharedGuard(const SharedGuard&) = delete;
  SharedGuard& operator=(const SharedGuard&) = delete;

 private:
  Lock& m_lock;
};

// Lets go of a lock that `TryAcquireShared` has taken.
class SCOPED_CAPABILITY AdoptSharedGuard {
 public:
  explicit AdoptSharedGuard(Lock& lock) REQUIRES_SHARED(lock) : m_lock(lock) {}
  ~AdoptSharedGuard() RELEASE_GENERIC() { m_lock.ReleaseShared(); }
  AdoptSharedGuard(const AdoptSharedGuard&) = delete;
  AdoptSharedGuard& operator=(const AdoptSharedGuard&) = delete;

 private:
  Lock& m_lock;
};

// A mutex of the system: when its holder dies, the next to ask for it gets it.
class KernelMutex {
 public:
  KernelMutex();
  KernelMutex(const KernelMutex&) = delete;
  KernelMutex& operator=(const KernelMutex&) = delete;

  // True when acquired within the time; abandoned counts as acquired.
  bool Acquire(std::uint32_t milliseconds);
  void Release();

 private:
  KernelHandle m_handle;
};

class KernelMutexGuard {
 public:
  KernelMutexGuard(KernelMutex& mutex, std::uint32_t milliseconds)
      : m_mutex(mutex), m_held(mutex.Acquire(milliseconds)) {}
  ~KernelMutexGuard() {
    if (m_held) m_mutex.Release();
  }
  KernelMutexGuard(const KernelMutexGuard&) = delete;
  KernelMutexGuard& operator=(const KernelMutexGuard&) = delete;
  [[nodiscard]] bool held() const { return m_held; }

 private:
  KernelMutex& m_mutex;
  bool m_held;
};

}  // namespace Tarnlo::os
