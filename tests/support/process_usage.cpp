#include "tests/support/process_usage.h"

#include <chrono>

#include "support/os/clock.h"

namespace Tarnlo::test {

void AwaitThreads(int most) {
  while (RunningThreads() > most) os::SleepMs(1);
}

int SettledHandles(int wanted) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  int handles = OpenHandles();
  while (handles > wanted && std::chrono::steady_clock::now() < end) {
    os::SleepMs(10);
    handles = OpenHandles();
  }
  return handles;
}

}  // namespace Tarnlo::test
