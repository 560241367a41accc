// What a KernelHandle points to on Linux.
#pragma once

#include <semaphore.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "support/os/handle.h"
#include "support/os/wait.h"

namespace Tarnlo::os::native {

// Counted by the handles and threads that refer to it; the last one deletes it.
class KernelObject {
 public:
  KernelObject() = default;
  KernelObject(const KernelObject&) = delete;
  KernelObject& operator=(const KernelObject&) = delete;
  virtual ~KernelObject() = default;

  void AddReference() { m_references.fetch_add(1, std::memory_order_relaxed); }
  void DropReference();

 private:
  std::atomic<int> m_references{1};
};

// One wait for one or several objects. A thread that is frozen in it holds nothing.
class Waiter {
 public:
  Waiter() { sem_init(&m_awake, 0, 0); }
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;
  ~Waiter() { sem_destroy(&m_awake); }
  void Wake() { sem_post(&m_awake); }
  // False when the time is over first. os::kForever never is.
  bool Sleep(std::uint32_t milliseconds);

 private:
  sem_t m_awake{};
};

// An object that is signalled once and stays so: an event, a thread.
//
// Threads: any. Each object has a lock of its own, so that waiting orders nothing but what the
// signal orders; a thread sanitizer then sees as much as it can.
class Signal : public KernelObject {
 public:
  void Set();
  [[nodiscard]] bool IsSet() const { return m_set.load(std::memory_order_acquire); }
  void Add(Waiter& waiter);
  void Remove(Waiter& waiter);

 private:
  std::atomic<bool> m_set{false};
  std::mutex m_mutex;
  std::vector<Waiter*> m_waiters;
};

// What os::WaitForAny does when it is not made to fail.
std::optional<std::size_t> WaitForFirst(std::span<const Waitable> objects,
                                        std::uint32_t milliseconds);

// The object behind a handle; the maker of the handle knows its type.
template <typename T>
T& ObjectOf(void* handle) {
  return *static_cast<T*>(static_cast<KernelObject*>(handle));
}

// The object as a handle holds it.
template <typename T>
void* HandleOf(T* object) {
  return static_cast<KernelObject*>(object);
}

}  // namespace Tarnlo::os::native
