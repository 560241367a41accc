// Memory for bytes on their way.
#pragma once

#include <cstddef>
#include <memory>

namespace Tarnlo::os {

// Uninitialised bytes; null when there is no memory for them.
std::unique_ptr<char[]> AllocateBuffer(std::size_t size);

}  // namespace Tarnlo::os
