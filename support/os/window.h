// Posting to a window of the host.
#pragma once

#include <cstdint>

namespace Tarnlo::os {

using WindowHandle = void*;

// False when the message could not be queued (the window is gone, its queue is full).
bool PostToWindow(WindowHandle window, std::uint32_t message, std::uintptr_t word_parameter,
                  std::intptr_t long_parameter);

}  // namespace Tarnlo::os
