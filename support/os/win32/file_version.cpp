#include "support/os/file_version.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "support/os/win32/native_path.h"
#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {
namespace {

// The fixed information comes first, so that a longer resource needs no more.
constexpr DWORD kMaxResourceBytes = 16 * 1024;

}  // namespace

std::optional<std::array<int, 4>> ReadFileVersion(const std::wstring& path) {
  const NativePath native(path);
  DWORD ignored = 0;
  const DWORD size = std::min(GetFileVersionInfoSizeW(native.c_str(), &ignored), kMaxResourceBytes);
  if (size == 0) return std::nullopt;
  std::vector<std::byte> resource(size);
  if (GetFileVersionInfoW(native.c_str(), 0, size, resource.data()) == 0) return std::nullopt;
  void* block = nullptr;
  UINT length = 0;
  if (VerQueryValueW(resource.data(), L"\\", &block, &length) == 0) return std::nullopt;
  if (block == nullptr || length < sizeof(VS_FIXEDFILEINFO)) return std::nullopt;
  const auto& fixed = *static_cast<const VS_FIXEDFILEINFO*>(block);
  return std::array<int, 4>{HIWORD(fixed.dwFileVersionMS), LOWORD(fixed.dwFileVersionMS),
                            HIWORD(fixed.dwFileVersionLS), LOWORD(fixed.dwFileVersionLS)};
}

}  // namespace Tarnlo::os
