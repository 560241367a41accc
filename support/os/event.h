// A manual-reset event: once set it stays set.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/os/handle.h"
#include "support/os/wait.h"

namespace Tarnlo::os {

// Threads: any thread may set it and wait for it.
// Lifetime: must outlive every wait on it; share it (std::shared_ptr) where that is not given.
class Event {
 public:
  Event();  // not signalled; `valid` tells whether the system granted it
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  [[nodiscard]] bool valid() const { return m_handle.valid(); }
  void Set();
  // One atomic read, no system call: cheap enough for a loop that moves data.
  [[nodiscard]] bool IsSet() const { return m_set.load(std::memory_order_acquire); }
  // True when it is set within the time. An invalid event is waited for by sleeping.
  bool Wait(std::uint32_t milliseconds) const;
  [[nodiscard]] Waitable waitable() const { return Waitable{m_handle.get()}; }

 private:
  KernelHandle m_handle;
  std::atomic<bool> m_set{false};
};

}  // namespace Tarnlo::os
