#include "support/os/clock.h"

#include "support/os/fault_point.h"

namespace Tarnlo::os {

bool HasElapsed(std::uint32_t since_tick, std::uint32_t milliseconds) {
  return TickMs() - since_tick >= ScaledInterval(milliseconds);
}

}  // namespace Tarnlo::os
