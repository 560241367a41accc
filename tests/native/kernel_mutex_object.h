// A mutex that knows its holder, and the mutexes that a thread leaves behind.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>

#include "tests/native/kernel_object.h"

namespace Tarnlo::os::native {

class MutexObject;

// The mutexes that one thread holds.
//
// Threads: told by its own thread, asked by whoever ends that thread.
class HeldMutexes {
 public:
  HeldMutexes() = default;
  HeldMutexes(const HeldMutexes&) = delete;
  HeldMutexes& operator=(const HeldMutexes&) = delete;
  ~HeldMutexes() { AbandonAll(); }
  void Add(MutexObject& held);
  void Remove(MutexObject& held);
  // The thread is gone: whoever waits for one of them gets it.
  void AbandonAll();

 private:
  std::mutex m_mutex;
  std::set<MutexObject*> m_held;
};

// Of the calling thread.
HeldMutexes& HeldByThisThread();

// May be acquired several times by its holder.
class MutexObject : public KernelObject {
 public:
  bool Acquire(std::uint32_t milliseconds);
  void Release();
  void Abandon();

 private:
  bool AcquireBy(std::chrono::steady_clock::time_point end);

  std::mutex m_mutex;
  std::condition_variable m_changed;
  HeldMutexes* m_holder = nullptr;
  int m_depth = 0;
};

}  // namespace Tarnlo::os::native
