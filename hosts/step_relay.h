// Log lines of work that runs on another thread than the one whose id they carry.
#pragma once

#include <memory>
#include <vector>

#include "support/os/event.h"
#include "support/os/lock.h"
#include "support/simple_log.h"

namespace Tarnlo {

// The working thread reports steps by number; the thread that waits for the work writes the lines,
// in order and as they come.
//
// Threads: one reports, one waits. Lifetime: shared by both, since either may be gone first.
class StepRelay {
 public:
  StepRelay() : m_news(std::make_shared<os::Event>()) {}
  StepRelay(const StepRelay&) = delete;
  StepRelay& operator=(const StepRelay&) = delete;

  void Step(int number);
  // Nothing follows.
  void Finish();

  // Writes the steps until the work has finished. False when `stop` (which may be null) came first.
  bool WriteUntilFinished(const StepLog& log, const os::Event* stop);

 private:
  os::Lock m_lock;
  std::vector<int> m_steps GUARDED_BY(m_lock);
  bool m_finished GUARDED_BY(m_lock) = false;
  // Set when there is more to take; a set one is replaced by whoever takes.
  std::shared_ptr<os::Event> m_news GUARDED_BY(m_lock);
};

}  // namespace Tarnlo
