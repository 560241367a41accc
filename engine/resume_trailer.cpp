#include "engine/resume_trailer.h"

#include <algorithm>
#include <limits>

namespace Tarnlo {
namespace {

constexpr std::size_t kFieldBytes = 8;
static_assert(kRecordBytes == 3 * kFieldBytes);

template <typename Number>
void Store(Number number, std::span<std::uint8_t> bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(number >> (8 * i));
  }
}

std::uint64_t Load(std::span<const std::uint8_t> bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) number |= std::uint64_t{bytes[i]} << (8 * i);
  return number;
}

bool LiesWithin(const RangeRecord& record, std::int64_t content_length) {
  return record.start >= 0 && record.length >= 0 && record.done >= 0 &&
         record.done <= record.length && record.start <= content_length &&
         record.length <= content_length - record.start;
}

}  // namespace

std::optional<std::int64_t> TemporaryFileSize(std::int64_t content_length, std::uint32_t count) {
  const std::int64_t trailer = TrailerBytes(count);
  if (content_length < 0 || content_length > std::numeric_limits<std::int64_t>::max() - trailer) {
    return std::nullopt;
  }
  return content_length + trailer;
}

std::array<std::uint8_t, kCountBytes> EncodeCount(std::uint32_t count) {
  std::array<std::uint8_t, kCountBytes> bytes{};
  Store(count, bytes);
  return bytes;
}

std::uint32_t DecodeCount(std::span<const std::uint8_t, kCountBytes> bytes) {
  return static_cast<std::uint32_t>(Load(bytes));
}

std::vector<std::uint8_t> EncodeRecords(std::span<const RangeRecord> records) {
  std::vector<std::uint8_t> bytes(records.size() * kRecordBytes);
  std::span<std::uint8_t> rest(bytes);
  for (const RangeRecord& record : records) {
    for (const std::int64_t field : {record.start, record.length, record.done}) {
      Store(static_cast<std::uint64_t>(field), rest.first(kFieldBytes));
      rest = rest.subspan(kFieldBytes);
    }
  }
  return bytes;
}

std::vector<RangeRecord> DecodeRecords(std::span<const std::uint8_t> bytes) {
  std::vector<RangeRecord> records(bytes.size() / kRecordBytes);
  for (RangeRecord& record : records) {
    for (std::int64_t* const field : {&record.start, &record.length, &record.done}) {
      *field = static_cast<std::int64_t>(Load(bytes.first(kFieldBytes)));
      bytes = bytes.subspan(kFieldBytes);
    }
  }
  return records;
}

bool ValidRecords(std::span<const RangeRecord> records, std::int64_t content_length) {
  std::vector<RangeRecord> sorted;
  for (const RangeRecord& record : records) {
    if (!LiesWithin(record, content_length)) return false;
    if (record.length > 0) sorted.push_back(record);
  }
  std::ranges::sort(sorted, {}, &RangeRecord::start);
  const auto overlap = [](const RangeRecord& a, const RangeRecord& b) {
    return b.start - a.start < a.length;
  };
  return std::ranges::adjacent_find(sorted, overlap) == sorted.end();
}

}  // namespace Tarnlo
