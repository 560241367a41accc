// Lets operations on tasks through one at a time.
#pragma once

#include <atomic>

#include "support/os/lock.h"

namespace Tarnlo {

// Held for the whole of an operation, the wait for a job's end included. A job that ends may itself
// be waiting here, inside a callback of its host: it gives up when it is being stopped, so that the
// operation that stops it need not outwait it. Once it has its turn it is not ended by force before
// the operation is over.
//
// Threads: any.
// Not recursive: no operation begins another.
class OperationGate {
 public:
  // False when the calling thread works for a job that is being stopped.
  bool Enter();
  void Leave();
  // Whether no operation is under way.
  [[nodiscard]] bool idle() const { return m_idle; }

 private:
  bool WaitForTurn();

  os::KernelMutex m_mutex;
  std::atomic<bool> m_idle{true};
};

// One operation's turn, which may not have been granted.
class OperationTurn {
 public:
  explicit OperationTurn(OperationGate& gate) : m_gate(gate), m_granted(gate.Enter()) {}
  ~OperationTurn() {
    if (m_granted) m_gate.Leave();
  }
  OperationTurn(const OperationTurn&) = delete;
  OperationTurn& operator=(const OperationTurn&) = delete;
  [[nodiscard]] bool granted() const { return m_granted; }

 private:
  OperationGate& m_gate;
  const bool m_granted;
};

}  // namespace Tarnlo
