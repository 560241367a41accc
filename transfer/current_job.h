// Which job the calling thread works for.
#pragma once

#include "support/os/event.h"
#include "transfer/worker_owner.h"

namespace Tarnlo {

// The job whose thread, or whose worker's thread, this is; null on a thread of the host.
IWorkerOwner* CurrentJob();

// Whether the calling thread is one of a job's and has been told to end.
bool CurrentThreadIsStopped();

// Marks the calling thread as a job's own while it lives. `stop`, which outlives it, tells the
// thread to end.
class CurrentJobScope {
 public:
  CurrentJobScope(IWorkerOwner* job, const os::Event& stop);
  ~CurrentJobScope();
  CurrentJobScope(const CurrentJobScope&) = delete;
  CurrentJobScope& operator=(const CurrentJobScope&) = delete;

 private:
  friend IWorkerOwner* CurrentJob();
  friend bool CurrentThreadIsStopped();

  IWorkerOwner* const m_job;
  const os::Event& m_stop;
};

}  // namespace Tarnlo
