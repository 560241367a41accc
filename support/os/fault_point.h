// Where tests make a call to the system fail. The files of the seam include this, and the one that
// decides which call it is.
#pragma once

#include <cstdint>

#include "support/os/call.h"

namespace Tarnlo::os {

#ifdef TARNLO_FAULTS
// True when this call is to fail.
bool Fails(Call call);
// How long a wait for a single event is to last instead.
std::uint32_t ScaledWait(std::uint32_t milliseconds);
// The same for what is measured between two readings of the clock.
std::uint32_t ScaledInterval(std::uint32_t milliseconds);
#else
// In the product no call is made to fail, and nothing of this is left.
constexpr bool Fails(Call /*call*/) {
  return false;
}
constexpr std::uint32_t ScaledWait(std::uint32_t milliseconds) {
  return milliseconds;
}
constexpr std::uint32_t ScaledInterval(std::uint32_t milliseconds) {
  return milliseconds;
}
#endif

}  // namespace Tarnlo::os
