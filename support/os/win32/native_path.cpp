#include "support/os/win32/native_path.h"

#include <string_view>

#include "support/os/path_form.h"
#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {
namespace {

bool HasDrive(std::wstring_view path) {
  return path.size() >= 3 && path[1] == L':' && (path[2] == L'\\' || path[2] == L'/');
}

// The same path with "." and ".." resolved and its slashes turned into backslashes; empty when the
// system refuses.
std::wstring FullPath(const std::wstring& path) {
  const DWORD needed = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
  std::wstring full(needed, L'\0');
  const DWORD length = GetFullPathNameW(path.c_str(), needed, full.data(), nullptr);
  if (length >= needed) return {};
  full.resize(length);
  return full;
}

// Empty when there is none.
std::wstring LongForm(const std::wstring& path) {
  if (!HasDrive(path)) return {};
  const std::wstring full = FullPath(path);
  return HasDrive(full) ? L"\\\\?\\" + full : std::wstring();
}

}  // namespace

NativePath::NativePath(const std::wstring& path) : m_text(path.c_str()) {
  if (path.size() < kLongPath) return;
  m_long = LongForm(path);
  if (!m_long.empty()) m_text = m_long.c_str();
}

std::wstring CallForm(const std::wstring& path, std::size_t extra) {
  if (path.size() + extra < kLongPath) return path;
  std::wstring form = LongForm(path);
  return form.empty() ? path : form;
}

}  // namespace Tarnlo::os
