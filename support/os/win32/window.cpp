#include "support/os/window.h"

#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {

bool PostToWindow(WindowHandle window, std::uint32_t message, std::uintptr_t word_parameter,
                  std::intptr_t long_parameter) {
  return PostMessageW(static_cast<HWND>(window), message, word_parameter, long_parameter) != 0;
}

}  // namespace Tarnlo::os
