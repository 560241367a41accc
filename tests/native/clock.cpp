#include "support/os/clock.h"

#include <chrono>
#include <ctime>
#include <thread>

namespace Tarnlo::os {

std::uint32_t TickMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint32_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

std::int64_t UnixSeconds() {
  return static_cast<std::int64_t>(std::time(nullptr));
}

LocalTime LocalTimeNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  if (localtime_r(&now, &local) == nullptr) return {};
  return LocalTime{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                   local.tm_hour,        local.tm_min,     local.tm_sec};
}

void SleepMs(std::uint32_t milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

}  // namespace Tarnlo::os
