#include "support/os/window.h"

namespace Tarnlo::os {

bool PostToWindow(WindowHandle /*window*/, std::uint32_t /*message*/,
                  std::uintptr_t /*word_parameter*/, std::intptr_t /*long_parameter*/) {
  return false;
}

}  // namespace Tarnlo::os
