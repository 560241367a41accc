#include "support/os/thread_slot.h"

#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {

ThreadSlot::ThreadSlot() : m_index(TlsAlloc()) {}

ThreadSlot::~ThreadSlot() {
  if (m_index != TLS_OUT_OF_INDEXES) TlsFree(m_index);
}

void* ThreadSlot::Get() const {
  if (m_index == TLS_OUT_OF_INDEXES) return nullptr;
  const DWORD last_error = GetLastError();
  void* value = TlsGetValue(m_index);
  SetLastError(last_error);
  return value;
}

// It changes what the slot holds.
// NOLINTNEXTLINE(readability-make-member-function-const)
void ThreadSlot::Set(void* value) {
  if (m_index != TLS_OUT_OF_INDEXES) TlsSetValue(m_index, value);
}

}  // namespace Tarnlo::os
