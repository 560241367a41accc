#include "transfer/current_job.h"

#include "support/os/thread_slot.h"
#include "support/process_object.h"

namespace Tarnlo {
namespace {

os::ThreadSlot& Slot() {
  static ProcessObject<os::ThreadSlot> slot;
  return *slot;
}

}  // namespace

IWorkerOwner* CurrentJob() {
  return static_cast<IWorkerOwner*>(Slot().Get());
}

CurrentJobScope::CurrentJobScope(IWorkerOwner* job) {
  Slot().Set(job);
}

CurrentJobScope::~CurrentJobScope() {
  Slot().Set(nullptr);
}

}  // namespace Tarnlo
