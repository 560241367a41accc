// Text into a buffer of a caller.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace Tarnlo {

// Copies as much as fits, with a terminator. An empty buffer is passed over.
inline void CopyCut(std::wstring_view text, std::span<wchar_t> buffer) {
  if (buffer.empty()) return;
  const std::size_t length = text.copy(buffer.data(), buffer.size() - 1);
  buffer[length] = L'\0';
}

}  // namespace Tarnlo
