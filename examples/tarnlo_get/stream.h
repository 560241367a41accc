// Standard output and standard error.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

namespace host {

// A standard stream: a console gets wide text, everything else UTF-8.
class Stream {
 public:
  explicit Stream(DWORD which);
  void Write(const std::wstring& text);
  // Where a console's cursor is and how wide its window.
  [[nodiscard]] std::optional<CONSOLE_SCREEN_BUFFER_INFO> Console() const;
  void MoveTo(COORD position) { SetConsoleCursorPosition(m_handle, position); }
  [[nodiscard]] bool IsTerminal() const;

 private:
  HANDLE m_handle;
  bool m_console = false;
};

}  // namespace host
