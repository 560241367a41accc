// What the callbacks have told of one task.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "api/tarnlo.h"

namespace host {

using Clock = std::chrono::steady_clock;

struct Sample {
  Clock::time_point time;
  std::int64_t downloaded = 0;
};

struct Download {
  std::wstring url;
  std::wstring name;
  Clock::time_point created;
  std::optional<Sample> first;  // progress
  std::optional<Sample> last;
  std::int64_t total = 0;
  std::int32_t speed = 0;
  std::optional<Clock::time_point> ended;
  std::int32_t result = Tarnlo::kResultSuccess;  // of one that has ended; -1: was not started
};

}  // namespace host
