// The module's end, when a host frees it while the process goes on.
#include "support/process_object.h"

namespace {
constexpr unsigned long kProcessDetach = 0;
}

// Called by the loader. Nothing is undone at the process's end: other threads are gone by then, in
// the middle of whatever they did. A module that is freed has never had a thread: the first one
// keeps it loaded.
extern "C" int DllMain(void* /*module*/, unsigned long reason, void* at_process_end) {
  if (reason == kProcessDetach && at_process_end == nullptr) {
    Tarnlo::ProcessObjectBase::DestroyAll();
  }
  return 1;
}
