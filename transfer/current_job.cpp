#include "transfer/current_job.h"

#include "support/os/thread_slot.h"
#include "support/process_object.h"

namespace Tarnlo {
namespace {

os::ThreadSlot& Slot() {
  static ProcessObject<os::ThreadSlot> slot;
  return *slot;
}

const CurrentJobScope* CurrentScope() {
  return static_cast<const CurrentJobScope*>(Slot().Get());
}

}  // namespace

IWorkerOwner* CurrentJob() {
  const CurrentJobScope* const scope = CurrentScope();
  return scope == nullptr ? nullptr : scope->m_job;
}

bool CurrentThreadIsStopped() {
  const CurrentJobScope* const scope = CurrentScope();
  return scope != nullptr && scope->m_stop.IsSet();
}

CurrentJobScope::CurrentJobScope(IWorkerOwner* job, const os::Event& stop)
    : m_job(job), m_stop(stop) {
  Slot().Set(this);
}

CurrentJobScope::~CurrentJobScope() {
  Slot().Set(nullptr);
}

}  // namespace Tarnlo
