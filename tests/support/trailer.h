// What stands behind the content of a temporary file, as tests read and write it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/range_record.h"
#include "tests/support/interval.h"

namespace Tarnlo::test {

struct Trailer {
  std::uint32_t count = 0;
  std::vector<RangeRecord> records;

  [[nodiscard]] std::vector<Interval> Missing() const;
  [[nodiscard]] std::int64_t MissingBytes() const;
};

std::int64_t SizeOf(const std::wstring& path);  // -1 when there is none
std::string EncodeTrailer(const Trailer& trailer);
// The trailer of a file whose content has that length; no records when it is not there.
Trailer ReadTrailer(const std::wstring& temporary_file, std::int64_t content_length);

}  // namespace Tarnlo::test
