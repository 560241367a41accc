// Lets operations on tasks through one at a time.
#pragma once

#include <atomic>

#include "support/compiler.h"
#include "support/os/lock.h"

namespace Tarnlo {

// Whether the calling thread works for a job, and that job or this one of its workers is being
// stopped.
bool CallerIsBeingStopped();

// Held for the whole of an operation, the wait for a job's end included. A job that ends may itself
// be waiting here, inside a callback of its host: it gives up when it is being stopped, so that the
// operation that stops it need not outwait it. Once it has its turn it is not ended by force before
// the operation is over.
//
// Threads: any.
// Not recursive: no operation begins another.
class CAPABILITY("mutex") OperationGate {
 public:
  // False when the calling thread works for a job that is being stopped.
  bool Enter() TRY_ACQUIRE(true);
  void Leave() RELEASE() NO_THREAD_SAFETY_ANALYSIS;
  // Whether no operation is under way.
  [[nodiscard]] bool idle() const { return m_idle; }

 private:
  bool WaitForTurn() TRY_ACQUIRE(true, m_mutex);

  os::KernelMutex m_mutex;
  std::atomic<bool> m_idle{true};
};

// Ends the turn of an operation that `Enter` has granted.
class SCOPED_CAPABILITY OperationTurn {
 public:
  explicit OperationTurn(OperationGate& gate) REQUIRES(gate) : m_gate(gate) {}
  ~OperationTurn() RELEASE() { m_gate.Leave(); }
  OperationTurn(const OperationTurn&) = delete;
  OperationTurn& operator=(const OperationTurn&) = delete;

 private:
  OperationGate& m_gate;
};

}  // namespace Tarnlo
