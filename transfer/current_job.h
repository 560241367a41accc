// Which job the calling thread works for.
#pragma once

#include "transfer/worker_owner.h"

namespace Tarnlo {

// The job whose thread, or whose worker's thread, this is; null on a thread of the host.
IWorkerOwner* CurrentJob();

// Marks the calling thread as a job's own while it lives.
class CurrentJobScope {
 public:
  explicit CurrentJobScope(IWorkerOwner* job);
  ~CurrentJobScope();
  CurrentJobScope(const CurrentJobScope&) = delete;
  CurrentJobScope& operator=(const CurrentJobScope&) = delete;
};

}  // namespace Tarnlo
