#include "support/os/system_folders.h"

#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {

std::optional<std::wstring> TempFolder(std::size_t capacity) {
  std::wstring path(capacity, L'\0');
  const DWORD length = GetTempPathW(static_cast<DWORD>(capacity), path.data());
  if (length == 0 || length >= capacity) return std::nullopt;
  path.resize(length);
  return path;
}

}  // namespace Tarnlo::os
