// Bytes [begin, end) of a file.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace Tarnlo::test {

struct Interval {
  std::int64_t begin = 0;
  std::int64_t end = 0;
  friend bool operator==(const Interval&, const Interval&) = default;
};

inline std::int64_t BytesIn(const std::vector<Interval>& intervals) {
  std::int64_t sum = 0;
  for (const Interval& interval : intervals) sum += interval.end - interval.begin;
  return sum;
}

// The same bytes in order, in as few intervals as can be.
inline std::vector<Interval> Merged(std::vector<Interval> intervals) {
  std::ranges::sort(intervals, {}, &Interval::begin);
  std::vector<Interval> merged;
  for (const Interval& next : intervals) {
    if (!merged.empty() && next.begin <= merged.back().end) {
      merged.back().end = std::max(merged.back().end, next.end);
    } else {
      merged.push_back(next);
    }
  }
  return merged;
}

// The bytes from 0 to `size` that are in none of them.
inline std::vector<Interval> Complement(const std::vector<Interval>& intervals, std::int64_t size) {
  std::vector<Interval> others;
  std::int64_t at = 0;
  for (const Interval& taken : Merged(intervals)) {
    if (at < taken.begin) others.push_back({at, taken.begin});
    at = taken.end;
  }
  if (at < size) others.push_back({at, size});
  return others;
}

}  // namespace Tarnlo::test
