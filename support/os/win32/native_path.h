// A path in the form that the system takes at any length.
#pragma once

#include <cstddef>
#include <string>

namespace Tarnlo::os {

// Below this every call takes a path as it is, those that keep room for a short name included.
inline constexpr std::size_t kLongPath = 240;

// A path below kLongPath is passed on as it is, with nothing allocated, since files are opened
// while the process ends, too.
//
// Lifetime: the path it was made from outlives it and does not change.
class NativePath {
 public:
  explicit NativePath(const std::wstring& path);
  NativePath(const NativePath&) = delete;
  NativePath& operator=(const NativePath&) = delete;
  [[nodiscard]] const wchar_t* c_str() const { return m_text; }

 private:
  std::wstring m_long;
  const wchar_t* m_text;
};

}  // namespace Tarnlo::os
