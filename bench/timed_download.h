// One download from its beginning to its end, timed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Tarnlo::bench {

struct TimedDownload {
  std::int32_t result = 0;
  double seconds = 0;
};

// A job of the engine, without anybody who follows its progress.
TimedDownload Download(const std::wstring& url, const std::wstring& folder);

double Median(std::vector<double> values);  // of one or more
double MegabytesPerSecond(std::int64_t bytes, double seconds);

}  // namespace Tarnlo::bench
