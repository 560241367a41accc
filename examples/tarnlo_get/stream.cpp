#include "examples/tarnlo_get/stream.h"

#include <cstddef>

namespace host {

Stream::Stream(DWORD which) : m_handle(GetStdHandle(which)) {
  DWORD mode = 0;
  m_console = GetConsoleMode(m_handle, &mode) != 0;
}

void Stream::Write(const std::wstring& text) {
  DWORD written = 0;
  if (m_console) {
    WriteConsoleW(m_handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    return;
  }
  const int wide = static_cast<int>(text.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), wide, nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), wide, bytes.data(), size, nullptr, nullptr);
  WriteFile(m_handle, bytes.data(), static_cast<DWORD>(size), &written, nullptr);
}

std::optional<CONSOLE_SCREEN_BUFFER_INFO> Stream::Console() const {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!m_console || GetConsoleScreenBufferInfo(m_handle, &info) == 0) return std::nullopt;
  return info;
}

bool Stream::IsTerminal() const {
  return m_console || GetFileType(m_handle) == FILE_TYPE_CHAR;
}

}  // namespace host
