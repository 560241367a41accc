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
class CAPABILITY("mutex") KernelMutex {
 public:
  KernelMutex();
  KernelMutex(const KernelMutex&) = delete;
  KernelMutex& operator=(const KernelMutex&) = delete;

  // True when acquired within the time; abandoned counts as acquired.
  bool Acquire(std::uint32_t milliseconds) TRY_ACQUIRE(true);
  void Release() RELEASE();

 private:
  KernelHandle m_handle;
};

// Lets go of a mutex that `Acquire` has got.
class SCOPED_CAPABILITY AdoptMutexGuard {
 public:
  explicit AdoptMutexGuard(KernelMutex& mutex) REQUIRES(mutex) : m_mutex(mutex) {}
  ~AdoptMutexGuard() RELEASE() { m_mutex.Release(); }
  AdoptMutexGuard(const AdoptMutexGuard&) = delete;
  AdoptMutexGuard& operator=(const AdoptMutexGuard&) = delete;

 private:
  KernelMutex& m_mutex;
};

}  // namespace Tarnlo::os
