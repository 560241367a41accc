// A thread with a reserved stack, and the forced end as a last resort.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "support/os/handle.h"
#include "support/os/held_locks.h"
#include "support/os/wait.h"

namespace Tarnlo::os {

// Threads: one thread owns the object; the id may be read by any.
// Lifetime: closing the object does not end the thread; what the thread uses must outlive it.
class Thread {
 public:
  using Entry = std::uint32_t (*)(void* context);

  Thread() = default;
  // `stack_bytes` are reserved, not committed. Not valid when the system refuses.
  static Thread Start(std::size_t stack_bytes, Entry entry, void* context);

  [[nodiscard]] bool valid() const { return m_handle.valid(); }
  [[nodiscard]] bool IsRunning() const;
  // True when the thread has ended within the time (or there is none).
  bool WaitForEnd(std::uint32_t milliseconds) const;
  // Ends it with exit code 0 wherever it is, but not while it holds a lock of this library: for
  // that it is waited for, half a minute at most. Only when all else failed.
  void Terminate();
  void Close() { m_handle.Reset(); }
  [[nodiscard]] std::uint32_t id() const { return m_id; }
  [[nodiscard]] Waitable waitable() const { return Waitable{m_handle.get()}; }

 private:
  // Waits until the thread may be ended. False when it has ended by itself.
  bool AwaitNoLocks() const;

  KernelHandle m_handle;
  std::shared_ptr<HeldLocks> m_held;
  std::uint32_t m_id = 0;
};

std::uint32_t CurrentThreadId();

// How often `Terminate` has been reached in this process.
std::uint32_t ForcedEnds();

}  // namespace Tarnlo::os
