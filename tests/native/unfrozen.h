// Where a thread is not to be frozen.
#pragma once

#include <csignal>
#include <mutex>

namespace Tarnlo::os::native {

inline constexpr int kFreezeSignal = SIGUSR2;

// While one exists its thread is not frozen by a forced end, but once it is gone: what is in here
// is a call of the system's on Windows, of which a thread that ends leaves nothing half done.
class Unfrozen {
 public:
  Unfrozen() { t_depth = t_depth + 1; }
  Unfrozen(const Unfrozen&) = delete;
  Unfrozen& operator=(const Unfrozen&) = delete;
  ~Unfrozen() {
    t_depth = t_depth - 1;
    if (t_depth == 0 && t_deferred != 0) std::raise(kFreezeSignal);
  }

  // For the signal's handler: whether it comes again when the last of the thread's is gone.
  static bool Defers() {
    t_deferred = t_depth > 0 ? 1 : 0;
    return t_deferred != 0;
  }

 private:
  static inline thread_local volatile std::sig_atomic_t t_depth = 0;
  static inline thread_local volatile std::sig_atomic_t t_deferred = 0;
};

// Holds a lock of the seam's own.
class SeamGuard {
 public:
  explicit SeamGuard(std::mutex& mutex) : m_guard(mutex) {}

 private:
  const Unfrozen m_unfrozen;  // before the lock, and after it
  const std::lock_guard<std::mutex> m_guard;
};

}  // namespace Tarnlo::os::native
