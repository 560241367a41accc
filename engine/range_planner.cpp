#include "engine/range_planner.h"

namespace Tarnlo {

std::vector<RangeRecord> PlanRanges(std::int64_t content_length, std::size_t count) {
  if (content_length <= 0) return {RangeRecord{0, kOpenEnd, 0}};
  const auto shares = static_cast<std::int64_t>(count);
  std::vector<RangeRecord> ranges(count);
  std::int64_t offset = 0;
  for (RangeRecord& range : ranges) {
    range.start = offset;
    range.length = content_length / shares;
    if (&range == ranges.data()) range.length += content_length % shares;
    offset += range.length;
  }
  return ranges;
}

std::optional<std::int64_t> GiveAway(std::int64_t remaining, bool running) {
  if (remaining <= 0 || (running && remaining < kMinimumSplit)) return std::nullopt;
  return running ? remaining / 2 : remaining;
}

}  // namespace Tarnlo
