// The module's end, when a host frees it while the process goes on.
#include "support/os/win32/windows_api.h"
#include "support/process_object.h"

// The compiler's runtime keeps memory ready for exceptions that are thrown when there is none left,
// and gives it back only when asked; no header declares how.
namespace __gnu_cxx {  // NOLINT(bugprone-reserved-identifier): the runtime's own
void __freeres();      // NOLINT(bugprone-reserved-identifier): the runtime's own
}

// Called by the loader. Nothing is undone at the process's end: other threads are gone by then, in
// the middle of whatever they did. A module that is freed has never had a thread: the first one
// keeps it loaded.
extern "C" BOOL WINAPI DllMain(HINSTANCE /*module*/, DWORD reason, void* at_process_end) {
  if (reason == DLL_PROCESS_DETACH && at_process_end == nullptr) {
    Tarnlo::ProcessObjectBase::DestroyAll();
    __gnu_cxx::__freeres();
  }
  return TRUE;
}
