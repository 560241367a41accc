// Keeps a thread from being ended by force while it holds a lock that others wait for.
#pragma once

#include <atomic>

namespace Tarnlo::os {

// How many locks one thread holds or is about to hold.
//
// Threads: `Enter` and `Leave` run on the thread itself, `Doom` on the one that ends it.
// Lifetime: shared by the thread and its owner, since either may be gone first.
class HeldLocks {
 public:
  // The calling thread's from now on; null at its end. A thread that has none, as a host's, is
  // never ended by force.
  static void Adopt(HeldLocks* locks);

  // Around each lock of the calling thread. Once the thread is doomed `Enter` does not return.
  static void Enter();
  static void Leave();

  // Whether it holds any.
  [[nodiscard]] bool Any() const { return m_count.load() > 0; }
  // True when the thread holds nothing and will not get anything any more: it may be ended.
  bool Doom();

 private:
  static constexpr int kDoomed = -1;
  std::atomic<int> m_count{0};
};

}  // namespace Tarnlo::os
