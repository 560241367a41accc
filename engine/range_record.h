// One byte range of a file: the unit of planning and of the resume trailer.
#pragma once

#include <cstdint>

#include "transfer/range_state.h"

namespace Tarnlo {

struct RangeRecord {
  std::int64_t start = 0;
  std::int64_t length = 0;
  std::int64_t done = 0;  // bytes written, counted from start

  friend bool operator==(const RangeRecord&, const RangeRecord&) = default;
};

}  // namespace Tarnlo
