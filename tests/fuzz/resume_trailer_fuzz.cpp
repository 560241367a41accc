// The trailer of a temporary file: a content length and then the trailer's bytes.
#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "engine/resume_trailer.h"
#include "tests/fuzz/fuzz.h"

namespace Tarnlo::fuzz {
namespace {

// No sum here can leave the range of the type.
bool Within(const RangeRecord& record, std::int64_t size) {
  return record.start >= 0 && record.length >= 0 && record.start <= size &&
         record.length <= size - record.start && record.done >= 0 && record.done <= record.length;
}

bool Overlap(const RangeRecord& a, const RangeRecord& b) {
  return a.length > 0 && b.length > 0 && a.start < b.start + b.length &&
         b.start < a.start + a.length;
}

// The same question, asked record by record.
bool Believable(const std::vector<RangeRecord>& records, std::int64_t size) {
  for (const RangeRecord& record : records) {
    if (!Within(record, size)) return false;
  }
  for (std::size_t i = 0; i < records.size(); ++i) {
    for (std::size_t k = 0; k < i; ++k) {
      if (Overlap(records[i], records[k])) return false;
    }
  }
  return true;
}

void CheckSizes(std::int64_t content_length, std::uint32_t count) {
  const std::optional<std::int64_t> size = TemporaryFileSize(content_length, count);
  const std::int64_t trailer = TrailerBytes(count);
  Require(trailer == std::int64_t{24} * count + 4, "a trailer has its size");
  const bool fits =
      content_length >= 0 && content_length <= std::numeric_limits<std::int64_t>::max() - trailer;
  Require(size.has_value() == fits, "a size that fits is one");
  if (size) Require(*size - trailer == content_length, "a file and its trailer");
  const auto bytes = EncodeCount(count);
  Require(DecodeCount(bytes) == count, "a count is read as written");
}

void CheckRecords(std::span<const std::uint8_t> bytes, std::int64_t content_length) {
  const std::vector<RangeRecord> records = DecodeRecords(bytes);
  Require(records.size() == bytes.size() / kRecordBytes, "as many records as there are whole");
  const std::vector<std::uint8_t> again = EncodeRecords(records);
  Require(std::equal(again.begin(), again.end(), bytes.begin()) && again.size() <= bytes.size(),
          "records are written as they were read");
  Require(ValidRecords(records, content_length) == Believable(records, content_length),
          "records that lie within the file and share no byte, and no others");
}

// What an input of few bits says: records near one another, which random numbers never are.
std::vector<RangeRecord> SmallRecords(std::string_view bytes) {
  std::vector<RangeRecord> records;
  for (std::size_t i = 0; i + 3 <= bytes.size() && records.size() < kMostRanges; i += 3) {
    const auto number = [&](std::size_t at) {
      return static_cast<std::int64_t>(static_cast<signed char>(bytes[at]));
    };
    records.push_back({number(i), number(i + 1), number(i + 2)});
  }
  return records;
}

void RunInput(Input input) {
  const auto content_length = input.Take<std::int64_t>();
  const auto count = input.Take<std::uint32_t>();
  CheckSizes(content_length, count);
  Require(ValidRangeCount(count) == (count > 0 && count < 64), "a count is 1 to 63");
  const std::string_view rest = input.Bytes(kMostRanges * kRecordBytes + 23);
  CheckRecords({reinterpret_cast<const std::uint8_t*>(rest.data()), rest.size()}, content_length);
  const std::vector<RangeRecord> small = SmallRecords(rest);
  const std::int64_t small_length = content_length & 0xFF;
  Require(ValidRecords(small, small_length) == Believable(small, small_length),
          "records of a small file");
}

}  // namespace
}  // namespace Tarnlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tarnlo::fuzz::RunInput(Tarnlo::fuzz::Input(data, size));
  return 0;
}
