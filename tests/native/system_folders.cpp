#include "support/os/system_folders.h"

#include "tests/native/native_path.h"

namespace Tarnlo::os {

std::optional<std::wstring> TempFolder(std::size_t capacity) {
  std::wstring path = native::WindowsPath(native::NativeTempFolder());
  if (path.back() != L'\\') path += L'\\';
  if (path.size() >= capacity) return std::nullopt;
  return path;
}

}  // namespace Tarnlo::os
