// The bytes behind the file's own in a temporary file, by which a later run goes on: the ranges, 24
// bytes each (start, length, done; 64 bits), then their count (32 bits). All little-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "engine/range_record.h"

namespace Tarnlo {

inline constexpr std::size_t kRecordBytes = 24;
inline constexpr std::size_t kCountBytes = 4;
inline constexpr std::uint32_t kMostRanges = 63;

constexpr bool ValidRangeCount(std::uint32_t count) {
  return count >= 1 && count <= kMostRanges;
}

// Where the records begin, counted back from the end of the file.
constexpr std::int64_t TrailerBytes(std::uint32_t count) {
  return static_cast<std::int64_t>(count) * std::int64_t{kRecordBytes} + std::int64_t{kCountBytes};
}

// Of the file with its trailer; nothing for a negative length and beyond the range of the type.
std::optional<std::int64_t> TemporaryFileSize(std::int64_t content_length, std::uint32_t count);

std::array<std::uint8_t, kCountBytes> EncodeCount(std::uint32_t count);
std::uint32_t DecodeCount(std::span<const std::uint8_t, kCountBytes> bytes);

std::vector<std::uint8_t> EncodeRecords(std::span<const RangeRecord> records);
// As many as the bytes hold whole.
std::vector<RangeRecord> DecodeRecords(std::span<const std::uint8_t> bytes);

// Whether records that were read may be worked with: each lies within the file, none has more done
// than its length, and no two share a byte. Bytes that no record names are on the disk already: a
// connection that finished its range and took over another's tail has only the tail in its record.
bool ValidRecords(std::span<const RangeRecord> records, std::int64_t content_length);

}  // namespace Tarnlo
