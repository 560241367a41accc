#include "tests/support/process_usage.h"

#include <chrono>

#include "support/os/clock.h"

namespace Tarnlo::test {
namespace {

int Settled(int (*reading)(), int wanted) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  int now = reading();
  while (now > wanted && std::chrono::steady_clock::now() < end) {
    os::SleepMs(10);
    now = reading();
  }
  return now;
}

}  // namespace

void AwaitThreads(int most) {
  while (RunningThreads() > most) os::SleepMs(1);
}

int SettledHandles(int wanted) {
  return Settled(OpenHandles, wanted);
}

int SettledThreads(int wanted) {
  return Settled(RunningThreads, wanted);
}

}  // namespace Tarnlo::test
