// Cutting a file into ranges, and a running range in two.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "engine/range_record.h"

namespace Tarnlo {

// A connection with less than this left keeps it.
inline constexpr std::int64_t kMinimumSplit = 102'400;

// Adjacent ranges in order that cover the file once; the first takes the remainder of the division.
// More ranges than bytes leave empty ones at the end. A content length below 1 is unknown: one
// range with an open end. `count` is 1 or more.
std::vector<RangeRecord> PlanRanges(std::int64_t content_length, std::size_t count);

// How much of its tail a connection with `remaining` bytes gives away: half while it runs, all of
// it when it does not; nothing when that is not worth a connection.
std::optional<std::int64_t> GiveAway(std::int64_t remaining, bool running);

}  // namespace Tarnlo
