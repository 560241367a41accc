// Ticks, the time of day, and sleeping.
#pragma once

#include <cstdint>

namespace Tarnlo::os {

// Milliseconds since the system started, modulo 2^32. Differences are right across the wrap.
std::uint32_t TickMs();
// True when that many milliseconds have passed since then.
bool HasElapsed(std::uint32_t since_tick, std::uint32_t milliseconds);

// Seconds since 1970.
std::int64_t UnixSeconds();

struct LocalTime {
  int year = 1970;  // with the century
  int month = 1;    // 1 to 12
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
};
LocalTime LocalTimeNow();

void SleepMs(std::uint32_t milliseconds);

}  // namespace Tarnlo::os
