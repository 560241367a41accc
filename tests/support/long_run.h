// How much of a test that could run for hours is run.
#pragma once

#include <cstdlib>
#include <string_view>

namespace Tarnlo::test {

// True with TARNLO_LONG=1 in the environment: everything, however long it takes.
inline bool LongRun() {
  const char* const value = std::getenv("TARNLO_LONG");
  return value != nullptr && std::string_view(value) == "1";
}

}  // namespace Tarnlo::test
