#include "support/os/buffer.h"

#include <new>

#include "support/os/fault_point.h"

namespace Tarnlo::os {

std::unique_ptr<char[]> AllocateBuffer(std::size_t size) {
  if (Fails(Call::kBuffer)) return nullptr;
  return std::unique_ptr<char[]>(new (std::nothrow) char[size]);
}

}  // namespace Tarnlo::os
