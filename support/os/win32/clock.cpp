#include "support/os/clock.h"

#include <ctime>

#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {

std::uint32_t TickMs() {
  return GetTickCount();
}

std::int64_t UnixSeconds() {
  return static_cast<std::int64_t>(std::time(nullptr));
}

LocalTime LocalTimeNow() {
  SYSTEMTIME now{};
  GetLocalTime(&now);  // no C runtime: it is called while the process ends, too
  return LocalTime{now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

void SleepMs(std::uint32_t milliseconds) {
  Sleep(milliseconds);
}

}  // namespace Tarnlo::os
