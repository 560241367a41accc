#include "support/os/handle.h"

#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {

bool KernelHandleTraits::IsValid(Value value) {
  return value != nullptr && value != INVALID_HANDLE_VALUE;
}

void KernelHandleTraits::Close(Value value) {
  const DWORD error = GetLastError();
  CloseHandle(value);
  SetLastError(error);
}

void SocketHandleTraits::Close(Value value) {
  closesocket(static_cast<SOCKET>(value));
}

}  // namespace Tarnlo::os
